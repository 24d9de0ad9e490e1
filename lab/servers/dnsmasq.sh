# dnsmasq as DHCP server.
# shellcheck shell=sh

# start_dnsmasq INTERFACE LINE...: each LINE goes into the configuration, at least a dhcp-range. The
# leases of an earlier run are kept.
start_dnsmasq() {
    {
        printf '%s\n' keep-in-foreground user=root log-facility=- log-dhcp port=0 no-ping \
            dhcp-authoritative bind-interfaces except-interface=lo dhcp-leasefile=/run/dnsmasq.leases \
            "interface=$1"
        shift
        printf '%s\n' "$@"
    } >/run/dnsmasq.conf
    serve dnsmasq "DHCP, sockets bound" dnsmasq --conf-file=/run/dnsmasq.conf
}

forget_dnsmasq_leases() {
    rm -f /run/dnsmasq.leases
}

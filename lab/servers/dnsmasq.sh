# dnsmasq as DHCP server, and as DNS server.

# start_dnsmasq INTERFACE LINE...: each LINE goes into the configuration, at least a dhcp-range. It knows nothing of
# the leases of an earlier one.
start_dnsmasq() {
    {
        printf '%s\n' keep-in-foreground user=root log-facility=- log-dhcp port=0 no-ping \
            dhcp-authoritative bind-interfaces except-interface=lo dhcp-leasefile=/run/dnsmasq.leases \
            "interface=$1"
        shift
        printf '%s\n' "$@"
    } >/run/dnsmasq.conf
    rm -f /run/dnsmasq.leases
    serve dnsmasq "DHCP, sockets bound" dnsmasq --conf-file=/run/dnsmasq.conf
}

# start_dnsmasq_dns ADDRESS RECORD...: a second one as DNS server of the zone voice.example, with records as
# for start_unbound. It has no SOA, answers an alias with what it leads to, and refuses other zones.
start_dnsmasq_dns() {
    {
        printf '%s\n' keep-in-foreground user=root pid-file= log-facility=- log-queries no-resolv no-hosts \
            local=/voice.example/ local-ttl=30 bind-interfaces except-interface=lo "listen-address=$1"
        shift
        printf '%s\n' "$@" | sed -E \
            -e 's/^(.*) CNAME (.*)$/cname=\1.voice.example,\2.voice.example/' \
            -e 's/^(.*) A+ (.*)$/host-record=\1.voice.example,\2/'
    } >/run/dnsmasq-dns.conf
    serve dnsmasq-dns "started" dnsmasq --conf-file=/run/dnsmasq-dns.conf
}

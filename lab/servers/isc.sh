# ISC dhcpd as DHCP server. It sends only the options that are asked for: the list makes it send the timers.

# start_isc INTERFACE SUBNET LINE...: SUBNET as "10.1.0"; each LINE goes into its subnet block
start_isc() {
    local interface=$1 net=$2
    shift 2
    cat >/run/dhcpd.conf <<END
ping-check false;
dhcp-cache-threshold 0;
option dhcp-parameter-request-list = concat(option dhcp-parameter-request-list, 1c, 3a, 3b);
subnet $net.0 netmask 255.255.255.0 {
$(printf '%s\n' "$@")
}
END
    : >/run/dhcpd.leases
    serve isc "Server starting service" \
        dhcpd -4 -f -d -cf /run/dhcpd.conf -lf /run/dhcpd.leases -pf /run/dhcpd.pid "$interface"
}

# dnsmasq says "success" in words with each address that it offers, so the device takes none. Where a router
# gives eth1 a prefix, it asks for configuration alone, and uses what dnsmasq says.
# shellcheck shell=sh

guest() {
    start_dnsmasq p1 dhcp-range=2001:db8:1::50,2001:db8:1::60,64,1h
    capture offers
    start_daemon
    wait_log "DHCPv6 on eth1 goes to SOLICIT"
    wait_log "DHCPv6 on eth1 goes to FAILED"
    stop_daemon
    stop_server dnsmasq
    end_capture offers

    start_dnsmasq p1 enable-ra dhcp-range=2001:db8:1::,ra-stateless,64 dhcp-option=option6:domain-search,voice.example \
        "dhcp-option=option6:dns-server,[2001:db8:1::53]" "dhcp-option=option6:sntp-server,[2001:db8:1::123]"
    wait_until "an address by router advertisement" has_address eth1 6
    capture stateless
    start_daemon
    wait_log "Detected IPv6 address 20010db80001000000a0b7fffe1a2b3c"
    wait_log "DHCPv6 on eth1 goes to STATELESS"
    wait_log "DHCPv6: Set DNS domain to voice.example"
    wait_log "DHCPv6: Add DNS server [2001:db8:1::53]"
    wait_log "DHCPv6: Set NTP server to [2001:db8:1::123]"
    expect "address" 2001:db8:1:0:a0:b7ff:fe1a:2b3c/64 "$(address_of eth1 6)"
}

host() {
    expect_file resolv.conf "search voice.example
nameserver [2001:db8:1::53]
"
    expect "DHCPv6 messages" "1 2 1 2 1 2 1 2" "$(frames offers dhcpv6 dhcpv6.msgtype | paste -sd ' ')"
    expect "types and options of the DHCPv6 messages of the device" "11|8,1,6" \
        "$(frames stateless "dhcpv6 && eth.src == $mac" dhcpv6.msgtype dhcpv6.option.type)"
}

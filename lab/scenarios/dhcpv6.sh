# DHCPv6 on the voice VLAN while eth1 carries IPv6 as well: address and renewal. And with routers on eth1: one that
# offers addresses in vain, one that gives a prefix.

guest() {
    make_voice_vlan
    kea_renew=3 kea_rebind=60
    start_kea 6 p1.100 2001:db8:100::/64 2001:db8:100::77-2001:db8:100::77 domain-search=voice.example \
        "dns-servers=2001:db8:100::53,2001:db8:100::54" sntp-servers=2001:db8:100::123
    begin_case kea
    wait_log "DHCPv6 on eth1.100 goes to BOUND" "DHCPv6: Set NTP server to [2001:db8:100::123]" \
        "DHCPv6 on eth1.100 goes to RENEW" "DHCPv6 on eth1.100 goes to BOUND"
    expect "address" 2001:db8:100::77/64 "$(address_of eth1.100 6)"
    expect_file resolv.conf 'search voice.example\nnameserver [2001:db8:100::53]\nnameserver [2001:db8:100::54]\n'
    stop_server kea
    stop_server lldpd

    # dnsmasq says "success" in words with each address that it offers, so the device takes none.
    start_dnsmasq p1 dhcp-range=2001:db8:1::50,2001:db8:1::60,64,1h
    begin_case offers
    wait_log "DHCPv6 on eth1 goes to SOLICIT" "DHCPv6 on eth1 goes to FAILED"

    start_dnsmasq p1 enable-ra dhcp-range=2001:db8:1::,ra-stateless,64 \
        "dhcp-option=option6:dns-server,[2001:db8:1::53]" "dhcp-option=option6:sntp-server,[2001:db8:1::123]"
    wait_until "an address by router advertisement" has_address eth1 6
    begin_case stateless
    wait_log "Detected IPv6 address 20010db80001000000a0b7fffe1a2b3c" "DHCPv6 on eth1 goes to STATELESS" \
        "DHCPv6: Set NTP server to [2001:db8:1::123]"
    expect_file resolv.conf 'nameserver [2001:db8:1::53]\n'
}

host() {
    local own="dhcpv6 && eth.src == $mac" sent="dhcpv6.msgtype dhcpv6.option.type"
    # The options include what the IA_NA holds.
    expect_frames kea "$own" "$sent dhcpv6.iaaddr.ip vlan.id vlan.priority" \
        "1|1,6,8,3||100|5 3|1,2,8,3,5,6|2001:db8:100::77|100|5 5|1,2,8,3,5,6|2001:db8:100::77|100|5"
    expect_frames kea "$own" "ipv6.dst dhcpv6.requested_option_code" "ff02::1:2|21,22,23,24,31,41,42"
    expect_frames stateless "$own" "$sent" "11|8,1,6"
}

# DHCPv6 on the voice VLAN, while eth1 itself carries IPv6 as well: address, renewal, DNS, and the time server.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    ip -n sw addr add 2001:db8:100::123/64 dev p1.100
    kea_renew=3 kea_rebind=60
    start_kea 6 p1.100 2001:db8:100::/64 2001:db8:100::77-2001:db8:100::77 \
        "dns-servers=2001:db8:100::53,2001:db8:100::54" domain-search=voice.example \
        sntp-servers=2001:db8:100::123
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    capture wire
    start_daemon
    wait_log "Set up IPv6 address 2001:db8:100::77"
    wait_log "DHCPv6 on eth1.100 goes to BOUND"
    wait_log "DHCPv6: Set DNS domain to voice.example"
    wait_log "DHCPv6: Add DNS server [2001:db8:100::53]"
    wait_log "DHCPv6: Add DNS server [2001:db8:100::54]"
    wait_log "DHCPv6: Set NTP server to [2001:db8:100::123]"
    wait_log "DHCPv6 on eth1.100 goes to RENEW"
    wait_log "DHCPv6 on eth1.100 goes to BOUND"
    wait_log "DHCPv6 on eth1.100 goes to RENEW" # the reply has armed T1 once more
    expect "address" 2001:db8:100::77/64 "$(address_of eth1.100 6)"
    expect "times that it was set" 1 "$(log_count "Set up IPv6 address")"
    start_chrony "Jan 1, 2030 00:00:00"
    wait_log "NTP: Use server [2001:db8:100::123]"
    wait_until "the clock" clock_in 2030
}

host() {
    expect_file resolv.conf "search voice.example
nameserver [2001:db8:100::53]
nameserver [2001:db8:100::54]
"
    # The options include what the IA_NA holds.
    expect "DHCPv6 messages of the device: type, options, T1, T2, address" "1|1,6,8,3|3600|5400|
3|1,2,8,3,5,6|3|60|2001:db8:100::77
5|1,2,8,3,5,6|3|60|2001:db8:100::77" "$(frames wire "dhcpv6 && eth.src == $mac" dhcpv6.msgtype \
        dhcpv6.option.type dhcpv6.iaid.t1 dhcpv6.iaid.t2 dhcpv6.iaaddr.ip | sort -u)"
    expect "their VLAN, priority, ports, destination, options asked for, client identifier" \
        "100|5|546|547|ff02::1:2|21,22,23,24,31,41,42|0003000102a0b71a2b3c" \
        "$(frames wire "dhcpv6 && eth.src == $mac" vlan.id vlan.priority udp.srcport udp.dstport ipv6.dst \
            dhcpv6.requested_option_code dhcpv6.duid.bytes | sed 's/,0003[^,|]*$//' | sort -u)"
}

# The DHCPv6 server is held up until the device rebinds. It answers the renewal too late, and a rebinding that
# names a server not at all. A minute later the device starts over, with a server of other manners.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    kea_renew=4 kea_rebind=6
    start_kea 6 p1.100 2001:db8:100::/64 2001:db8:100::77-2001:db8:100::77
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    capture wire
    start_daemon
    wait_log "DHCPv6 on eth1.100 goes to BOUND"
    kill -STOP "$(cat /run/kea.pid)"
    wait_log "DHCPv6 on eth1.100 goes to REBIND"
    kill -CONT "$(cat /run/kea.pid)"
    wait_log "DHCPv6 on eth1.100 goes to FAILED"
    stop_server kea

    # NoAddrsAvail, success in words, success; NoBinding
    serve peer "serving" python3 dhcpv6_peer.py p1.100 1=grant:0002,grant:000073756363657373,grant:0000 \
        3=grant 5=deny:0003,grant 6=silence,grant
    sleep 40
    wait_log "DHCPv6 on eth1.100 goes to SOLICIT"
    wait_log "Set up IPv6 address 2001:db8:100::88"
    wait_log "DHCPv6: Add DNS server [2001:db8:100::3]"
    wait_log "DHCPv6 on eth1.100 goes to REBIND"
    wait_log "DHCPv6 on eth1.100 goes to BOUND"
    wait_log "DHCPv6: Add DNS server [2001:db8:100::6]"
    wait_log "DHCPv6: Add DNS server [2001:db8:100::5]"
}

host() {
    device="dhcpv6 && eth.src == $mac"
    expect "rounds of one transaction each: copies and type" "1x1 1x3 2x5 4x6 3x1 1x3 1x5 2x6 1x5" \
        "$(frames wire "$device" dhcpv6.xid dhcpv6.msgtype | uniq -c | sed 's/^ *//; s/ .*|/x/' | paste -sd ' ')"
    expect "identity associations" 1 "$(frames wire "$device" dhcpv6.iaid | sort -u | wc -l)"
    check_pauses wire "$device && dhcpv6.msgtype in {1, 6}" 6000 1000 1000 1000 61000 1000 1000
    rebind=$(frames wire "$device && dhcpv6.msgtype == 6" frame.number | head -n 1)
    expect "transaction that is answered after the first REBIND: the RENEW" \
        "$(frames wire "$device && dhcpv6.msgtype == 5" dhcpv6.xid | head -n 1)" \
        "$(frames wire "dhcpv6.msgtype == 7 && frame.number > $rebind" dhcpv6.xid | head -n 1)"
    # tshark takes the milliseconds for hundredths of a second (RFC 3315, 22.9). They wrap before the end.
    expect "elapsed times that do not fit" "" "$(frames wire "$device" frame.time_epoch dhcpv6.elapsed_time |
        awk -F'|' 'NR == 1 { start = $1 - 3 }
                   { wrong = $1 - start - $2 / 10000; if (wrong > 60) { wrong -= 65.536; wrapped = 1 }
                     if (wrong < -0.6 || wrong > 0.2) print $0 }
                   END { if (!wrapped) print "no wrap" }')"
}

# A hostile neighbour sends damaged frames of every kind, while the device gets its lease and after. The lease
# stands, the daemon runs on and does not grow.
# shellcheck shell=sh

question="vlan and ip6 and udp dst port 547" # DHCPv6 of the device

guest() {
    switch_vlan 100
    ip addr add 2001:db8:1::9/64 dev eth1 nodad # so that DHCPv6 waits for a REPLY for ever
    start_dnsmasq p1.100 dhcp-range=10.100.0.77,10.100.0.77,255.255.255.0,1h
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    capture wire
    serve early "sending" python3 garbage.py 1 20000 p1 p1.100
    start_daemon
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    wait_log "DHCPv6 on eth1.100 goes to STATELESS"
    stop_server early
    wait_until "DHCPv6 on the wire" captured wire "$question" 1
    end_capture wire

    # From now on with the transaction ids that the daemon listens for.
    xid=$(sed -n 's/.*client provides name//; s/.* \([0-9]*\) DHCPACK.*/\1/p' "$out"/dnsmasq.log | tail -n 1)
    xid6=$(tcpdump -n -v -r "$out/wire.pcap" "$question" 2>/dev/null |
        sed -n 's/.*(xid=\([0-9a-f]*\).*/\1/p' | head -n 1)
    xids=$(printf %08x%06x "$xid" "0x$xid6")
    flood 2
    before=$(memory_kb)
    flood 3
    flood 4
    after=$(memory_kb)
    note "memory: $before kB, and $after kB after 8000 hostile frames more"
    expect_between "kB of memory gained" -1000 100 $((after - before))
    expect_between "DNS servers believed, as half of the DHCPv6 junk is taken for an answer" 10 10000 \
        "$(log_count "DHCPv6: Add DNS server")"
    expect "address" 10.100.0.77/24 "$(address_of eth1.100)"
    expect "leases" 1 "$(log_count "goes to BOUND")"
    expect "policies from the switch, all policies" "$(log_count "LLDP: VLAN=100, Priority=5, DSCP=46")" \
        "$(log_count "LLDP: VLAN=")"
}

# The daemon works in turn: once it has read a frame sent behind the flood, it has read the flood.
flood() {
    in_sw python3 garbage.py "$1" 4000 p1 p1.100 "$xids" >/run/flood
    link_file DOWN
    wait_log "Ethernet link went down on eth1"
    link_file UP
    wait_log "Ethernet link went up again, restarting network on eth1"
}

host() {
    expect "hostile frames before and during the lease" yes \
        "$([ "$(count_frames wire 'eth.src == 02:ba:d0:00:00:01')" -gt 100 ] && echo yes)"
}

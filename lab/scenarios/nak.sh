# The network is renumbered: the server refuses the renewal. The device gives its address up at once and gets
# a new one.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    lease_of 10.100.0.77
    capture wire
    ip monitor address >"$out/addresses" &
    start_daemon

    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    stop_server dnsmasq
    forget_dnsmasq_leases
    lease_of 10.100.0.88
    # A slow network, to see the device between two leases.
    load_modules net/sched/sch_netem
    in_sw tc qdisc add dev p1 root netem delay 1s
    wait_log "DHCPv4 on eth1.100 goes to RENEWING"
    wait_log "DHCPv4: Receive DHCP NACK in state RENEWING"
    wait_log "DHCPv4 on eth1.100 goes to INIT"
    expect "address after the refusal" "" "$(address_of eth1.100)"
    wait_log "DHCPv4 on eth1.100 goes to BOUND"

    expect "address" 10.100.0.88/24 "$(address_of eth1.100)"
    expect "default route" "default via 10.100.0.1 dev eth1.100" "$(default_route)"
    wait_until "the end of the address events" grep -q 10.100.0.88 "$out/addresses"
}

lease_of() {
    start_dnsmasq p1.100 "dhcp-range=$1,$1,255.255.255.0,2m" dhcp-option=option:T1,4 dhcp-option=option:T2,60
}

host() {
    # The kernel sees the address with a netmask of its own making first.
    expect "addresses put on and taken off" "10.100.0.77/24 Deleted 10.100.0.77/24 10.100.0.88/24" \
        "$(sed -n 's/^\(Deleted \)\{0,1\}.* inet \([^ ]*\/24\) .*/\1\2/p' "$out/addresses" |
            uniq | paste -sd ' ')"
    # Without an address no answer would reach an ordinary socket: discovery goes by raw frames again.
    expect "source, destination and TTL of the second DISCOVER" "0.0.0.0|255.255.255.255|128" \
        "$(frames wire 'dhcp.option.dhcp == 1' ip.src ip.dst ip.ttl | sed -n 2p)"
}

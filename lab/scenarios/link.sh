# The link goes down and comes back. First before DHCP has begun: it must wait. Then with a lease on the voice
# VLAN: the LLDP agent starts over, the VLAN interface and its DHCP client stay as they are.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    capture wire
    start_daemon
    wait_log "Starting LLDP"
    link_down
    sleep 2 # past the third second
    expect "DHCP clients started without a link" 0 "$(log_count "goes to SELECTING")"
    start_dnsmasq p1.100 dhcp-range=10.100.0.77,10.100.0.77,255.255.255.0,1h \
        dhcp-option=option:T1,15 dhcp-option=option:T2,60
    lldp_interval=1
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    link_up
    wait_log "DHCPv4 on eth1.100 goes to BOUND"

    index=$(cat /sys/class/net/eth1.100/ifindex)
    ip link set eth1.100 mtu 1400 # stays, unless the interface is set up once more
    link_down
    link_up
    wait_log "Send LLDP"
    # The client's own timer has run on: it renews what it had.
    wait_log "DHCPv4 on eth1.100 goes to RENEWING"
    wait_log "DHCPv4 on eth1.100 goes to BOUND"

    expect "policies learnt: one for each time the link was up" 2 \
        "$(log_count "LLDP: VLAN=100, Priority=5, DSCP=46")"
    expect "VLANs chosen" 2 "$(log_count "Using VLAN 100")"
    expect "index of the VLAN interface" "$index" "$(cat /sys/class/net/eth1.100/ifindex)"
    expect "MTU of the VLAN interface" 1400 "$(cat /sys/class/net/eth1.100/mtu)"
    expect "address" 10.100.0.77/24 "$(address_of eth1.100)"
    expect "DISCOVER rounds" 1 "$(log_count "goes to SELECTING")"
}

link_down() {
    ip -n sw link set p1 down
    link_file DOWN
    wait_log "Ethernet link went down on eth1"
}

# The wire last: its LLDP socket stays open, so that a policy could come before the daemon has looked.
link_up() {
    link_file UP
    wait_log "Ethernet link went up again, restarting network on eth1"
    wait_log "Starting LLDP"
    ip -n sw link set p1 up
}

host() {
    expect "DISCOVER messages" 1 "$(count_frames wire 'dhcp.option.dhcp == 1')"
}

# The demonstration of ./run: the device comes onto a network with a voice VLAN, and says how.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    start_dnsmasq p1.100 dhcp-range=10.100.0.50,10.100.0.60,255.255.255.0,1h dhcp-option=6,10.100.0.1 \
        dhcp-option=15,voice.example dhcp-option=66,tftp.voice.example dhcp-option=67,base.cfg
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    capture wire
    : >"$out/records"
    tail -n +1 -f "$out/records" &
    screen=$!
    start_daemon
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    wait_log "Send LLDP" # with the address now
    end_process $screen
    summary
    [ -z "$CONSOLE" ] || shell
}

summary() {
    echo
    echo "--- What came of it ---"
    ip -br address show up
    grep -h . /proc/net/vlan/eth1.100 | grep -E 'VID|priority'
    echo "MTU of eth1.100: $(cat /sys/class/net/eth1.100/mtu)"
    echo; echo "Routes:"; ip -4 route
    echo; echo "resolv.conf:"; cat "$app/resolv.conf"
    echo; echo "dhcp.info:"; cat "$app/dhcp.info"; echo
    echo; echo "What the switch heard (LLDP-MED):"
    lldp_neighbour | grep -E 'mgmt-ip|policy\.(vlan|pcp|dscp)'
}

# A shell of the device's network. The device's tree is below $device.
shell() {
    echo
    echo "A shell in the device's network. Log records: tail -f $out/records. Servers: ip netns exec sw ..."
    echo "The driver's word on the link: link_file DOWN, link_file UP. Leave with exit."
    cd "$app" && ENV=/run/lab/guest.sh PS1='device# ' sh -i # sh reads that file first
}

# The demonstration of ./run: the device comes onto a network with a voice VLAN, sets its clock, and says how.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    ip -n sw addr add 10.100.0.53/24 dev p1.100
    ip -n sw addr add 10.100.0.123/24 dev p1.100
    start_unbound 10.100.0.53 "time CNAME clock" "clock A 10.100.0.123"
    start_chrony "Jan 1, 2030 00:00:00"
    start_dnsmasq p1.100 dhcp-range=10.100.0.50,10.100.0.60,255.255.255.0,1h dhcp-option=6,10.100.0.53 \
        dhcp-option=15,voice.example dhcp-option=66,tftp.voice.example dhcp-option=67,base.cfg
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    capture wire
    : >"$out/records"
    tail -n +1 -f "$out/records" &
    screen=$!
    settings ntp_server=time.voice.example
    before=$(date "+%F %T")
    start_daemon
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    wait_log "NTP: Use server time.voice.example" # the last that happens on the wire but LLDP
    after=$(date "+%F %T")
    wait_log "Send LLDP" # with the address now
    wait_until "the address at the switch" switch_knows "$(address_of eth1.100 | cut -d / -f 1)"
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
    echo; echo "Time server time.voice.example, on the wire:"
    tcpdump -n -t -r "$out/wire.pcap" 'vlan and udp and (port 53 or port 123)' 2>/dev/null |
        sed 's/^.*IP //'
    echo; echo "Clock before: $before"; echo "Clock after:  $after"
}

# A shell of the device's network. The device's tree is below $device.
shell() {
    echo
    echo "A shell in the device's network. Log records: tail -f $out/records. Servers: ip netns exec sw ..."
    echo "The driver's word on the link: link_file DOWN, link_file UP. Leave with exit."
    cd "$app" && ENV=/run/lab/guest.sh PS1='device# ' sh -i # sh reads that file first
}

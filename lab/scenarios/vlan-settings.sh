# No switch names a VLAN: after three seconds the device takes the one from its settings. The only LLDP-MED
# neighbour is another endpoint; its policy must not count.
# shellcheck shell=sh

guest() {
    settings vlan_id=200 vlan_prio=3
    switch_vlan 200
    start_dnsmasq p1.200 dhcp-range=10.200.0.77,10.200.0.77,255.255.255.0,1h dhcp-option=6,10.200.0.1
    lldp_class=3
    start_lldpd "voice tagged vlan 300 priority video dscp 34"
    capture wire
    start_daemon

    wait_log "Using VLAN 200"
    wait_log "DHCPv4 on eth1.200 goes to BOUND"
    expect "address" 10.200.0.77/24 "$(address_of eth1.200)"
    expect "egress priority map" "0:3" "$(egress_map eth1.200)"
    expect "policies taken" 0 "$(log_count "LLDP: VLAN=")"
}

host() {
    expect_file resolv.conf "nameserver 10.200.0.1
"
    expect "the endpoint's policy on the wire" yes \
        "$([ "$(count_frames wire 'lldp.media.vlan_id == 300')" -gt 0 ] && echo yes)"
    first=$(frames wire "lldp && eth.src == $mac" frame.time_epoch | head -n 1)
    discover=$(frames wire 'dhcp.option.dhcp == 1' frame.time_epoch | head -n 1)
    expect_between "milliseconds from the first LLDP frame to the first DISCOVER" 2950 4500 \
        "$(ms_between "$first" "$discover")"
    expect "VLAN and priority of all DHCP messages of the device" "200|3" \
        "$(frames wire "dhcp && eth.src == $mac" vlan.id vlan.priority | sort -u)"
}

# The switch names the voice VLAN by LLDP-MED: the device moves there at once and gets its lease.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    start_dnsmasq p1.100 dhcp-range=10.100.0.77,10.100.0.77,255.255.255.0,1h \
        dhcp-option=3,10.100.0.1 dhcp-option=6,10.100.0.1,10.100.0.2 \
        dhcp-option=15,voice.example dhcp-option=66,tftp.voice.example dhcp-option=67,base.cfg
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    capture wire
    ip -ts monitor address >"$out/addresses" &
    start_daemon

    wait_log "LLDP: VLAN=100, Priority=5, DSCP=46"
    wait_log "Using VLAN 100"
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    wait_log "DHCPv4: Use IP address 10.100.0.77"
    wait_log "DHCPv4: Set TFTP server to tftp.voice.example"
    wait_log "DHCPv4: Set Bootfile name to base.cfg"

    expect "address" 10.100.0.77/24 "$(address_of eth1.100)"
    expect "broadcast address" 10.100.0.255 "$(broadcast_of eth1.100)"
    expect "address of eth1 itself" "" "$(address_of eth1)"
    expect "default route" "default via 10.100.0.1 dev eth1.100" "$(default_route)"
    expect "MTU" 1496 "$(cat /sys/class/net/eth1.100/mtu)"
    expect "egress priority map" "0:5" "$(egress_map eth1.100)"

    # The frames at 1 and 2 seconds: the switch reads them.
    wait_log "Send LLDP"
    wait_log "Send LLDP"
    wait_until "the frame at the switch" switch_knows 10.100.0.77
    lldp_neighbour >"$out/neighbour"
    sleep 1.5 # the fourth tick would start DHCP had the policy not come
    expect "DHCP clients started" 1 "$(log_count "goes to SELECTING")"
}

host() {
    expect_file resolv.conf "search voice.example
nameserver 10.100.0.1
nameserver 10.100.0.2
"
    expect_file dhcp.info "option66: tftp.voice.example
option67: base.cfg
dhcp-server: 10.100.0.1"

    expect "untagged DHCP frames" 0 "$(count_frames wire 'dhcp && !vlan')"
    expect "DHCP messages of the device: VLAN, priority, TTL, type, client" \
        "100|5|128|1|0.0.0.0
100|5|128|3|0.0.0.0" "$(frames wire "dhcp && eth.src == $mac" \
        vlan.id vlan.priority ip.ttl dhcp.option.dhcp dhcp.ip.client)"
    expect "options asked for" 1,3,6,12,15,42,43,66,67,120,125,132,133 \
        "$(frames wire 'dhcp.option.dhcp == 1' dhcp.option.request_list_item)"
    expect "LLDP: chassis, management address, unknown policy, tagged, VLAN, priority, DSCP, MAU type" \
        "0.0.0.0||1|0|0|0|0|0x0010
10.100.0.77|10.100.0.77|0|1|100|5|46|0x0010
10.100.0.77|10.100.0.77|0|1|100|5|46|0x0010" "$(frames wire "lldp && eth.src == $mac" \
        lldp.chassis.id.ip4 lldp.mgn.addr.ip4 lldp.media.policy_flag lldp.media.tag_flag \
        lldp.media.vlan_id lldp.media.l2_prio lldp.media.dscp lldp.ieee.802_3.pmd_mau_type)"
    switch_read chassis.name "Brakwell_1A:2B:3C"
    switch_read chassis.Tel.enabled on
    switch_read lldp-med.device-type "Communication Device Endpoint (Class III)"
    switch_read lldp-med.policy.apptype Voice
    switch_read lldp-med.inventory.firmware 6.4.2
    switch_read lldp-med.inventory.serial SN0042
    check_speed
}

switch_read() {
    expect "$1 as the switch reads it" "$2" "$(sed -n "s/^$1=//p" "$out/neighbour")"
}

# From the switch's policy to the address on the interface, less the time that the server took.
check_speed() {
    discover=$(frames wire 'dhcp.option.dhcp == 1' frame.number)
    policy=$(frames wire "lldp && eth.src != $mac && frame.number < $discover" frame.time_epoch | tail -n 1)
    applied=$(sed -n 's/^\[\(.*\)\].* 10\.100\.0\.77.*/\1/p' "$out/addresses" | head -n 1)
    applied=$(date -u -d "$applied" +%s.%N)
    server=$(frames wire 'dhcp' frame.time_epoch dhcp.option.dhcp | awk -F'|' '
        $2 == 1 || $2 == 3 { asked = $1 }
        $2 == 2 || $2 == 5 { sum += ($1 - asked) * 1000 }
        END { printf "%.0f", sum }')
    own=$(($(ms_between "$policy" "$applied") - server))
    note "policy to address: $own ms, and $server ms for the server"
    # 50 on a quiet machine; a busy one has its own pauses.
    expect_between "milliseconds from policy to address" 0 250 $own
}

# The switch names the voice VLAN by LLDP-MED: the device moves there at once and gets its lease, which stays when
# the link goes down and comes back. Where no switch does, it takes VLAN and address from its settings.

guest() {
    make_voice_vlan
    start_dnsmasq p1.100 dhcp-range=10.100.0.77,10.100.0.77,255.255.255.0,1h dhcp-option=6,10.100.0.1,10.100.0.2 \
        dhcp-option=15,voice.example dhcp-option=66,tftp.voice.example dhcp-option=67,base.cfg
    begin_case voice
    wait_log "LLDP: VLAN=100, Priority=5, DSCP=46" "Using VLAN 100"
    wait_lease 10.100.0.77 eth1.100
    expect "broadcast address, address of eth1 itself" "10.100.0.255 " "$(broadcast_of eth1.100) $(address_of eth1)"
    expect "MTU" 1496 "$(cat /sys/class/net/eth1.100/mtu)"
    expect "egress priority map" "0:5" "$(egress_map eth1.100)"
    expect_file resolv.conf 'search voice.example\nnameserver 10.100.0.1\nnameserver 10.100.0.2\n'
    expect_file dhcp.info 'option66: tftp.voice.example\noption67: base.cfg\ndhcp-server: 10.100.0.1'
    wait_until "the frame at the switch" switch_knows 10.100.0.77
    expect "name, policy and serial number as the switch reads them" "Brakwell_1A:2B:3C Voice SN0042" "$(
        lldp_neighbour | sed -n 's/^\(chassis.name\|lldp-med.policy.apptype\|lldp-med.inventory.serial\)=//p' | xargs)"

    # The LLDP agent starts over; the VLAN interface, which is marked here, and its DHCP client stay as they are.
    ip link set eth1.100 mtu 1400
    ip -n sw link set p1 down
    link_goes DOWN
    link_goes UP
    wait_log "Starting LLDP"
    ip -n sw link set p1 up
    wait_log "Using VLAN 100" "Send LLDP"
    expect "MTU and address later" "1400 10.100.0.77/24" "$(cat /sys/class/net/eth1.100/mtu) $(address_of eth1.100)"
    expect_log 1 "eth1.100 goes to SELECTING"

    # The only neighbour is another endpoint, whose policy must not count.
    lldp_class=3
    start_lldpd "voice tagged vlan 300 priority video dscp 34"
    switch_vlan 200
    ip -n sw addr add 192.0.2.1/32 dev lo
    begin_case settings vlan_id=200 vlan_prio=3 dhcp=false ip_adr=10.200.0.9 netmask=255.255.254.0 gateway=10.200.0.1
    wait_until "the static address" has_address eth1.200
    expect "static and broadcast address" "10.200.0.9/23 10.200.1.255" "$(address_of eth1.200) $(broadcast_of eth1.200)"
    busybox ping -q -c 1 -W 9 192.0.2.1 >"$out/ping" 2>&1 || failure "the gateway passes nothing on"
    expect_log 0 "LLDP: VLAN="
}

host() {
    local own="eth.src == $mac"
    expect_frames voice "dhcp && $own && ip.dst == 255.255.255.255" "vlan.id vlan.priority ip.ttl" "100|5|128"
    expect_frames voice "dhcp.option.dhcp == 1" dhcp.option.request_list_item 1,3,6,12,15,42,43,66,67,120,125,132,133
    # Management address, unknown policy, tagged, VLAN, priority, DSCP, MAU type
    expect_frames voice "lldp && $own" "lldp.mgn.addr.ip4 lldp.media.policy_flag lldp.media.tag_flag lldp.media.vlan_id
        lldp.media.l2_prio lldp.media.dscp lldp.ieee.802_3.pmd_mau_type" \
        "|1|0|0|0|0|0x0010 10.100.0.77|0|1|100|5|46|0x0010 10.100.0.77|0|0|0|0|0|0x0010"
    expect_frames settings "lldp && !($own)" lldp.media.vlan_id 300
    expect_frames settings "icmp.type == 8" "vlan.id vlan.priority ip.src" "200|3|10.200.0.9"
}

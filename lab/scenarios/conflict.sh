# Another host uses the address that the server offers. The device declines it, over and over, and must not
# ask for another one before T2.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    lldp_interval=1
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    rogue_host 10.100.0.60
    offer_60_first

    # The other host is slow to answer: the lease is applied before the conflict shows.
    ip netns exec rogue tc qdisc add dev mv0 root netem delay 900ms
    capture leased
    start_daemon
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    wait_log "DHCPv4: IP address conflict detected"
    wait_log "DHCPv4 on eth1.100 goes to INIT"
    expect "address after the conflict" 10.100.0.60/24 "$(address_of eth1.100)"
    wait_log "DHCPv4 on eth1.100 goes to SELECTING"
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    case $(address_of eth1.100) in
    10.100.0.5?/24) ;;
    *) failure "address after T2: expected one of 10.100.0.50 to 59, saw \"$(address_of eth1.100)\"" ;;
    esac
    stop_daemon
    end_capture leased

    # The request never reaches the server, the probe the other host: without a lease there is no T2, and
    # declining never ends.
    stop_server dnsmasq
    forget_dnsmasq_leases
    offer_60_first
    clean_network
    drop_requests
    capture lost
    start_daemon
    wait_log "DHCPv4: IP address conflict detected"
    wait_until "three DECLINE messages" three_declines
    expect "address without a lease" "" "$(address_of eth1.100)"
}

rogue_host() {
    load_modules drivers/net/macvlan net/sched/sch_netem
    ip netns add rogue
    ip -n sw link add link p1.100 name mv0 type macvlan mode bridge
    ip -n sw link set mv0 netns rogue
    ip -n rogue addr add "$1/24" dev mv0
    ip -n rogue link set mv0 up
}

offer_60_first() {
    start_dnsmasq p1.100 dhcp-range=10.100.0.50,10.100.0.59,255.255.255.0,2m "dhcp-host=$mac,10.100.0.60" \
        dhcp-option=option:T1,60 dhcp-option=option:T2,9
}

# The switch drops every REQUEST that comes from the device: byte 270 of the datagram is the message type.
drop_requests() {
    load_modules net/sched/sch_ingress net/sched/cls_u32 net/sched/act_gact
    in_sw tc qdisc add dev p1.100 ingress
    in_sw tc filter add dev p1.100 parent ffff: protocol ip u32 match u8 3 0xff at 270 action drop
}

three_declines() {
    [ "$(grep -c DHCPDECLINE "$out/dnsmasq.log")" -ge 3 ]
}

host() {
    for capture in leased lost; do
        decline="dhcp.option.dhcp == 4"
        expect "$capture: transaction ids, client, options 50 and 54 of DECLINE" \
            "1 0.0.0.0|10.100.0.60|10.100.0.1" \
            "$(frames $capture "$decline" dhcp.id | sort -u | wc -l) $(frames $capture "$decline" \
                dhcp.ip.client dhcp.option.requested_ip_address dhcp.option.dhcp_server_id | sort -u)"
        check_repeats $capture "$decline"
    done
    granted=$(frames leased 'dhcp.option.dhcp == 5' frame.time_epoch | head -n 1)
    resumed=$(frames leased 'dhcp.option.dhcp == 1' frame.time_epoch | sed -n 2p)
    expect_between "milliseconds from the lease to the DISCOVER after T2" 9950 13000 \
        "$(ms_between "$granted" "$resumed")"
    expect "DISCOVER messages without a lease" 1 "$(count_frames lost 'dhcp.option.dhcp == 1')"
}

# DHCPv4 with three servers: leases, their renewal and loss, and an address that another host has already.

guest() {
    make_voice_vlan
    # One server after the other, none of which knows the leases of the one before: the second refuses to renew, then
    # renews by unicast, then dies. The third refuses the device that rebinds, without its address.
    start_isc p1.100 10.100.0 "range 10.100.0.77 10.100.0.77;" "option routers 10.100.0.1;" \
        "option dhcp-renewal-time 4;" "option dhcp-rebinding-time 60;"
    begin_case ends
    wait_lease 10.100.0.77 eth1.100
    stop_server isc
    serve_lease 10.100.0.88 3 6
    wait_log "DHCPv4: Receive DHCP NACK in state RENEWING"
    wait_lease 10.100.0.88 eth1.100
    wait_log "DHCPv4: Receive DHCP ACK in state RENEWING"
    stop_server dnsmasq
    wait_log "DHCPv4 on eth1.100 goes to REBINDING"
    expect "address and default route while rebinding" " " "$(address_of eth1.100) $(ip route show default)"
    serve_lease 10.100.0.99 60 90
    wait_log "DHCPv4: Receive DHCP NACK in state REBINDING"
    wait_lease 10.100.0.99 eth1.100
    stop_server dnsmasq

    # The other host is slow to answer: the lease is applied before the conflict shows. Until T2 the device declines.
    load_modules drivers/net/macvlan net/sched/sch_netem
    ip netns add rogue
    ip -n sw link add link p1.100 name mv0 netns rogue type macvlan mode bridge
    ip -n rogue addr add 10.100.0.60/24 dev mv0
    ip -n rogue link set mv0 up
    ip netns exec rogue tc qdisc add dev mv0 root netem delay 900ms
    kea_renew=5 kea_rebind=6
    start_kea 4 p1.100 10.100.0.0/24 10.100.0.60-10.100.0.61 routers=10.100.0.1
    begin_case conflict
    wait_lease 10.100.0.60 eth1.100
    wait_log "DHCPv4: IP address conflict detected" "goes to INIT" "goes to SELECTING"
    wait_lease 10.100.0.61 eth1.100
    file_says "$out/kea.log" DHCP4_DECLINE_LEASE || failure "the server read no DECLINE"
}

# serve_lease ADDRESS T1 T2
serve_lease() {
    start_dnsmasq p1.100 "dhcp-range=$1,$1,255.255.255.0,2m" "dhcp-option=option:T1,$2" "dhcp-option=option:T2,$3"
}

host() {
    expect_frames ends "dhcp.option.requested_ip_address == dhcp.ip.client && !icmp" "ip.src ip.dst dhcp.ip.client" \
        "10.100.0.77|10.100.0.1|10.100.0.77 10.100.0.88|10.100.0.1|10.100.0.88 0.0.0.0|255.255.255.255|10.100.0.88"
    # Without an address no answer would reach an ordinary socket: discovery goes by raw frames again.
    expect_frames ends "dhcp.option.dhcp == 1" "ip.src ip.dst ip.ttl" "0.0.0.0|255.255.255.255|128"
}

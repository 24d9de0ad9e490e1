# A lease is renewed by unicast. Then the server dies: the device rebinds, without its address, until a
# server answers again, which knows nothing of the lease and refuses it. The device starts over.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    short_lease 10.100.0.77
    capture wire
    start_daemon

    wait_log "DHCPv4: Lease duration is 120 sec, renewing lease in 3 sec"
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    wait_log "DHCPv4 on eth1.100 goes to RENEWING"
    expect "address while renewing" 10.100.0.77/24 "$(address_of eth1.100)"
    wait_log "DHCPv4: Receive DHCP ACK in state RENEWING"
    wait_log "DHCPv4 on eth1.100 goes to BOUND"

    stop_server dnsmasq
    wait_log "DHCPv4 on eth1.100 goes to RENEWING"
    wait_log "DHCPv4 on eth1.100 goes to REBINDING"
    expect "address while rebinding" "" "$(address_of eth1.100)"
    expect "default route while rebinding" "" "$(default_route)"

    forget_dnsmasq_leases
    short_lease 10.100.0.88
    wait_log "DHCPv4: Receive DHCP NACK in state REBINDING"
    wait_log "DHCPv4 on eth1.100 goes to SELECTING"
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    expect "address from the new server" 10.100.0.88/24 "$(address_of eth1.100)"
    expect "default route" "default via 10.100.0.1 dev eth1.100" "$(default_route)"
}

short_lease() {
    start_dnsmasq p1.100 "dhcp-range=$1,$1,255.255.255.0,2m" dhcp-option=option:T1,3 dhcp-option=option:T2,6
}

host() {
    requests="dhcp.option.dhcp == 3 && dhcp.option.requested_ip_address == 10.100.0.77 && !icmp"
    expect "source, destination, options 50 and 54 of requests that renew" \
        "10.100.0.77|10.100.0.1|10.100.0.77|10.100.0.1" \
        "$(frames wire "$requests && ip.dst == 10.100.0.1" ip.src ip.dst \
            dhcp.option.requested_ip_address dhcp.option.dhcp_server_id | sort -u)"
    expect "source, options 50 and 54 of requests that rebind" "0.0.0.0|10.100.0.77|10.100.0.1" \
        "$(frames wire "$requests && dhcp.ip.client == 10.100.0.77 && ip.dst == 255.255.255.255" ip.src \
            dhcp.option.requested_ip_address dhcp.option.dhcp_server_id | sort -u)"
    check_repeats wire "$requests"
    # RFC 5227, 2.1 and 2.3: three probes, three announcements, a second apart
    expect "senders of the ARP frames for the first address" \
        "0.0.0.0 0.0.0.0 0.0.0.0 10.100.0.77 10.100.0.77 10.100.0.77" \
        "$(frames wire "arp.opcode == 1 && eth.dst == ff:ff:ff:ff:ff:ff && eth.src == $mac &&
            arp.dst.proto_ipv4 == 10.100.0.77" arp.src.proto_ipv4 | paste -sd ' ')"
}

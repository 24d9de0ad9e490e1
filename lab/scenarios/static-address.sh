# A static address from the settings; where its netmask or the address itself is no good, DHCP is used.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    lldp_interval=1
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    capture wire

    settings dhcp=false ip_adr=10.100.0.9 netmask=255.255.254.0 gateway=10.100.0.1
    start_daemon
    wait_until "the static address" has_address eth1.100
    expect "address" 10.100.0.9/23 "$(address_of eth1.100)"
    expect "broadcast address" 10.100.1.255 "$(broadcast_of eth1.100)"
    expect "default route" "default via 10.100.0.1 dev eth1.100" "$(default_route)"
    wait_until "the address at the switch" switch_knows 10.100.0.9
    stop_daemon
    expect "states of DHCP with a static address" 0 "$(log_count "goes to SELECTING")"
    clean_network

    falls_back 10.100.0.9 255.0.255.0
    falls_back 10.100.0.9 255.255.255.255
    falls_back 10.100.0.9 0.0.0.0
    falls_back 10.100.0.0 255.255.255.0
}

falls_back() {
    settings dhcp=false "ip_adr=$1" "netmask=$2" gateway=10.100.0.1
    start_daemon
    wait_log "DHCPv4 on eth1.100 goes to SELECTING"
    expect "address $1 with netmask $2" "" "$(address_of eth1.100)"
    stop_daemon
    clean_network
}

host() {
    expect "devices that asked for a lease" 4 \
        "$(frames wire 'dhcp.option.dhcp == 1' dhcp.id | sort -u | wc -l)"
}

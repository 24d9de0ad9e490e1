# No switch at all: after three seconds DHCP starts on eth1 itself, with three different servers.
# shellcheck shell=sh

guest() {
    with dnsmasq p1 dhcp-range=10.1.0.7,10.1.0.7,255.255.255.0,1h dhcp-option=6,10.1.0.2,10.1.0.3 \
        dhcp-option=15,voice.example dhcp-option=66,tftp.voice.example dhcp-option=67,base.cfg
    with isc p1 10.1.0 "range 10.1.0.7 10.1.0.7;" "option routers 10.1.0.1;" \
        "option domain-name-servers 10.1.0.2, 10.1.0.3;" "option domain-name \"voice.example\";" \
        "option tftp-server-name \"tftp.voice.example\";" "option bootfile-name \"base.cfg\";"
    with kea 4 p1 10.1.0.0/24 10.1.0.7-10.1.0.7 routers=10.1.0.1 domain-name=voice.example \
        "domain-name-servers=10.1.0.2,10.1.0.3" tftp-server-name=tftp.voice.example boot-file-name=base.cfg
}

# with SERVER ARGUMENT...: a fresh device gets its lease from that server
with() {
    server=$1
    shift
    "start_$server" "$@"
    capture "$server"
    start_daemon
    wait_log "DHCPv4 on eth1 goes to BOUND"
    expect "address from $server" 10.1.0.7/24 "$(address_of eth1)"
    expect "default route from $server" "default via 10.1.0.1 dev eth1" "$(default_route)"
    expect_file resolv.conf "search voice.example
nameserver 10.1.0.2
nameserver 10.1.0.3
"
    expect_file dhcp.info "option66: tftp.voice.example
option67: base.cfg
dhcp-server: 10.1.0.1"
    stop_daemon
    stop_server "$server"
    end_capture "$server"
    clean_network
}

host() {
    for server in dnsmasq isc kea; do
        first=$(frames $server "lldp && eth.src == $mac" frame.time_epoch | head -n 1)
        discover=$(frames $server 'dhcp.option.dhcp == 1' frame.time_epoch | head -n 1)
        expect_between "with $server, milliseconds from the first LLDP frame to the first DISCOVER" \
            2950 4500 "$(ms_between "$first" "$discover")"
    done
}

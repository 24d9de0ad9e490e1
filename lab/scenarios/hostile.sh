# A hostile neighbour sends damaged frames of every kind; a scanner begins thousands of transfers, without access and
# with it. The lease stands, nobody gains access, the daemon does not grow and serves others afterwards.

device_address=10.100.0.77

guest() {
    local guess before gained
    make_voice_vlan
    start_dnsmasq p1.100 dhcp-range=10.100.0.77,10.100.0.77,255.255.255.0,1h
    settings telnet_enabled=false ntp_server=10.100.0.1
    start_daemon
    wait_lease 10.100.0.77 eth1.100
    for guess in $(seq 20); do
        credentials admin "$guess"
    done
    scan 2000 2 auth.txt
    upload settings.xml "x" && failure "settings were taken without access"
    expect_log 0 "TFTP: Authentication succeeded"
    flood 1
    before=$(memory_kb)
    flood 2
    gained=$(($(memory_kb) - before))
    expect_between "kB of memory gained by hostile frames" -2000 100 $gained
    expect_log 1 "goes to BOUND"
    expect_log "$(log_count "LLDP: VLAN=100, Priority=5, DSCP=46")" "LLDP: VLAN="

    # As many readers as find a descriptor, none of which goes on.
    random_file big 8388608
    cp /run/tftp/big "$app"
    begin_case stalled telnet_enabled=true
    end_process "$watcher"
    wait_lease 10.100.0.77 eth1.100
    before=$(memory_kb)
    scan 3000 1 big
    gained=$(($(memory_kb HWM) - before))
    note "memory: $before kB, and $gained kB more with $(descriptors) descriptors"
    expect_between "descriptors with readers" 500 1024 "$(descriptors)"
    expect_between "kB of memory gained" 0 5119 $gained
    wait_until "the scanner's transfers to end" tftp_get curl $device_address big
    cmp -s /run/tftp/got /run/tftp/big || failure "the file that was fetched is another one"
}

descriptors() {
    find "/proc/$daemon/fd" -type l | wc -l
}

# flood SEED: the daemon works in turn: once it has seen the link go down, it has read what came before.
flood() {
    junk "$1" 3000
    link_goes DOWN
    link_goes UP
    expect "address" 10.100.0.77/24 "$(address_of eth1.100)"
}

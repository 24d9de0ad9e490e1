# A hostile neighbour sends damaged frames of every kind, while the device gets its lease and after; a scanner begins
# thousands of transfers, without access and with it. The lease stands, nobody gains access, the daemon does not grow
# and serves others afterwards.

guest() {
    local before gained question="vlan and ip6 and udp dst port 547" # DHCPv6 of the device
    make_voice_vlan
    ip addr add 2001:db8:1::9/64 dev eth1 nodad # so that DHCPv6 waits for a REPLY for ever
    start_dnsmasq p1.100 dhcp-range=10.100.0.77,10.100.0.77,255.255.255.0,1h
    device_address=10.100.0.77
    serve early "sending" python3 garbage.py 1 100000 p1 p1.100
    begin_case junk telnet_enabled=false ntp_server=10.100.0.1
    wait_lease 10.100.0.77 eth1.100
    wait_until "DHCPv6 on the wire" captured junk "$question" 1
    stop_server early
    end_process "$watcher"
    scan 300 guess auth.txt
    scan 2000 write auth.txt
    upload settings.xml "x" && failure "settings were taken without access"
    expect_log 0 "TFTP: Authentication succeeded"
    expect_between "wrong credentials" 1 300 "$(log_count "TFTP: Authentication failed")"

    flood 2
    before=$(memory_kb)
    flood 3
    gained=$(($(memory_kb) - before))
    note "memory: $before kB, and $gained kB more after more hostile frames"
    expect_between "kB of memory gained" -2000 100 $gained
    expect_between "DNS servers believed, as half of the DHCPv6 junk is taken for an answer" 10 10000 \
        "$(log_count "DHCPv6: Add DNS server")"
    expect_log 1 "goes to BOUND"
    expect_log "$(log_count "LLDP: VLAN=100, Priority=5, DSCP=46")" "LLDP: VLAN="
    wait_until "nobody to listen" nobody_listens
    end_case

    # As many as find a descriptor.
    random_file big 8388608
    random_file file 300000
    cp /run/tftp/big /run/tftp/file "$app"
    begin_case stalled telnet_enabled=true ntp_server=10.100.0.1
    end_process "$watcher"
    wait_lease 10.100.0.77 eth1.100
    before=$(memory_kb)
    scan 3000 read big
    gained=$(($(memory_kb HWM) - before))
    note "memory: $before kB, and $gained kB more with stalled readers"
    expect_between "kB of memory gained" 0 5119 $gained
    link_flaps
    wait_until "the scanner's transfers to end" tftp_get curl "$device_address" file
    cmp -s /run/tftp/got /run/tftp/file || failure "the file that was fetched is another one"
    end_case
}

# scan COUNT KIND NAME
scan() {
    in_sw python3 tftp_scanner.py "$device_address" "$@" >/run/scan
    note "of $1 transfers ($2 $3) $(cat /run/scan) were let in"
    expect_between "transfers that were let in" 1 "$1" "$(cat /run/scan)"
}

# flood SEED: now with the transaction ids that the daemon listens for. It works in turn: once it has seen the link go
# down, it has read what came before.
flood() {
    local xid xid6
    xid=$(sed -n 's/.*client provides name//; s/.* \([0-9]*\) DHCPACK.*/\1/p' "$out"/dnsmasq.log | tail -n 1)
    xid6=$(tcpdump -n -v -r "$out/junk.pcap" "$question" 2>/dev/null | sed -n 's/.*(xid=\([0-9a-f]*\).*/\1/p' | head -n 1)
    in_sw python3 garbage.py "$1" 3000 p1 p1.100 "$(printf %08x%06x "$xid" "0x$xid6")" >/run/flood
    link_flaps
}

link_flaps() {
    link_file DOWN
    wait_log "Ethernet link went down on eth1"
    link_file UP
    wait_log "Ethernet link went up again, restarting network on eth1"
    expect "address" 10.100.0.77/24 "$(address_of eth1.100)"
}

# After 32 seconds. Port 69 is 0045 in hex.
nobody_listens() {
    ! grep -q ':0045 ' /proc/net/udp /proc/net/udp6
}

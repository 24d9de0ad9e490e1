# A scanner begins ten thousand transfers, half of them while access is off: it gains no access, and the daemon
# keeps its lease and serves others afterwards.
# shellcheck shell=sh

guest() {
    start_dnsmasq p1 dhcp-range=10.1.0.77,10.1.0.77,255.255.255.0,1h
    random_file file 300000
    cp /run/tftp/file "$app/file"
    settings telnet_enabled=false ntp_server=10.1.0.1
    start_daemon
    wait_log "DHCPv4 on eth1 goes to BOUND"
    before=$(memory_kb)
    scan 300 guess auth.txt
    scan 4700 write auth.txt
    expect "access" "Authentication Required" "$(refusal)"
    expect "credentials that were taken" 0 "$(log_count "TFTP: Authentication succeeded")"
    expect_between "wrong credentials" 1 300 "$(log_count "TFTP: Authentication failed")"
    note "memory: $before kB, and $(memory_kb) kB after 5000 transfers without access"
    link_works
    stop_daemon
    clean_network

    settings telnet_enabled=true ntp_server=10.1.0.1
    start_daemon
    wait_log "DHCPv4 on eth1 goes to BOUND"
    scan 5000 read file
    note "memory: $(memory_kb) kB after 5000 transfers with access"
    wait_log "TFTP: Retransmit timeout"
    wait_until "the scanner's transfers to end" tftp_get curl 10.1.0.77 file
    cmp -s /run/tftp/got /run/tftp/file || failure "the file that was fetched is another one"
    link_works
}

# scan COUNT KIND NAME
scan() {
    in_sw python3 tftp_scanner.py 10.1.0.77 "$@" >/run/scan
    note "$1 transfers ($2 $3): $(cat /run/scan)"
    expect_between "transfers that were let in, $(cat /run/scan)" 1 "$1" \
        "$(sed 's/.*\(acknowledged\|data\) \([0-9]*\).*/\2/' /run/scan)"
}

# What the server says to one who wants the settings; nothing is left of it to wait for.
refusal() {
    in_tftp atftp -g -r settings.xml -l got 10.1.0.77 2>&1 | sed -n 's/.*\(Authentication Required\).*/\1/p' | head -n 1
}

link_works() {
    link_file DOWN
    wait_log "Ethernet link went down on eth1"
    link_file UP
    wait_log "DHCPv4 on eth1 goes to BOUND"
    expect "address" 10.1.0.77/24 "$(address_of eth1)"
}

host() {
    :
}

# Two time servers, both silent: one that the settings name is asked once, the one that DHCP gives as an
# address every five seconds, until it answers and sets the device's clock. Then one at a port of its own, beyond 2038.
# shellcheck shell=sh

guest() {
    for address in 10.1.0.5/24 10.1.0.53/24 10.1.0.123/24 2001:db8:1::123/64; do
        ip -n sw addr add $address dev p1
    done
    ip addr add 2001:db8:1::9/64 dev eth1 nodad
    start_dnsmasq p1 dhcp-range=10.1.0.7,10.1.0.7,255.255.255.0,1h dhcp-option=6,10.1.0.53 \
        dhcp-option=42,10.1.0.5,10.1.0.6
    start_dnsmasq_dns 10.1.0.53 "time A 10.1.0.123"

    settings ntp_server=time.voice.example
    capture silence
    start_daemon
    wait_log "NTP: Trying to resolve time.voice.example"
    wait_log "DHCPv4: Set NTP server to 10.1.0.5"
    wait_until "two requests to the server of DHCP" captured silence "dst 10.1.0.5 and udp dst port 123" 2
    expect "time servers in use" 0 "$(log_count "NTP: Use server")"
    start_chrony "Jan 1, 2030 00:00:00"
    wait_log "NTP: Use server 10.1.0.5"
    wait_until "the clock" clock_in 2030
    date +%s >"$out/clock"
    end_capture silence
    stop_daemon
    stop_server dnsmasq
    stop_server chrony
    clean_network

    start_chrony "Jan 1, 2040 00:00:00" 1123
    settings dhcp=false ip_adr=10.1.0.9 netmask=255.255.255.0 "ntp_server=[2001:db8:1::123]:1123"
    start_daemon
    wait_log "NTP: Use server [2001:db8:1::123]:1123"
    wait_until "the clock" clock_in 2040
    link_file DOWN
    wait_log "Ethernet link went down on eth1" # The daemon's own time goes on.
}

host() {
    expect "requests to the named server" 1 "$(count_frames silence 'ntp && !icmp && ip.dst == 10.1.0.123')"
    frames silence 'ntp && !icmp && ip.dst == 10.1.0.5' frame.time_epoch udp.payload >"$out/requests"
    expect "requests to the server of DHCP" 3 "$(wc -l <"$out/requests")"
    # RFC 4330, 5: version 3, client. The time in it is always the same.
    expect "requests" "1b$(zeros 23)80034bc0$(zeros 20)" "$(sed 's/.*|//' "$out/requests" | sort -u)"
    sed 's/|.*//' "$out/requests" | while read -r time; do
        [ -z "$before" ] || expect_between "milliseconds from one request to the next" 4950 5900 \
            "$(ms_between "$before" "$time")"
        before=$time
    done
    # The device sets its clock to the second that follows, and goes on from there.
    answer=$(frames silence 'ntp && !icmp && ip.src == 10.1.0.5' udp.payload | cut -c 81-88)
    expect_between "seconds from the answer's time to the device's" 1 3 \
        $(($(cat "$out/clock") + 2208988800 - 0x$answer))
}

zeros() {
    printf '00%.0s' $(seq "$1")
}

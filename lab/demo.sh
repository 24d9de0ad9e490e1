# The demonstration of ./run: the device comes onto a guarded network with a voice VLAN, sets its clock, is
# provisioned, and says how.

# of the device
own="ieee802_1x_username=base7 ieee802_1x_password=secret ntp_server=time.voice.example telnet_enabled=false"

guest() {
    [ -z "$CONSOLE" ] || lldp_interval=1 # so that a daemon that is restarted hears of the VLAN in time
    start_servers
    capture wire
    device_settings
    start_daemon
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    wait_log "NTP: Use server" # the one of the settings: DHCPv6 waits three seconds for routers
    start_chrony "" # or it would be as many years ahead of the new time
    after=$(date "+%F %T")
    wait_log "Send LLDP" # with the address now
    device_address=$(address_of eth1.100 | cut -d / -f 1)
    wait_until "the address at the switch" switch_knows "$device_address"
    wait_until "the servers from DHCPv6" file_says "$out/records" "DHCPv6: Set NTP server to"
    provision
    wait_log "TFTP: Authentication succeeded"
    wait_log "TFTP: Authentication succeeded"
    end_process $screen
    device_summary
    switch_summary
    [ -z "$CONSOLE" ] || shell
}

start_servers() {
    switch_vlan 100
    for address in 10.100.0.53/24 10.100.0.123/24 2001:db8:100::53/64 2001:db8:100::123/64; do
        ip -n sw addr add $address dev p1.100
    done
    start_unbound "10.100.0.53 2001:db8:100::53" "time CNAME clock" "clock A 10.100.0.123"
    start_chrony "${server_time:-Jan 1, 2030 00:00:00}"
    start_dnsmasq p1.100 dhcp-range=10.100.0.50,10.100.0.60,255.255.255.0,1h dhcp-option=6,10.100.0.53 \
        dhcp-option=15,voice.example dhcp-option=66,tftp.voice.example dhcp-option=67,base.cfg
    start_kea 6 p1.100 2001:db8:100::/64 2001:db8:100::50-2001:db8:100::60 dns-servers=2001:db8:100::53 \
        domain-search=voice.example sntp-servers=2001:db8:100::123
    start_hostapd MD5
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
}

# The first settings and the time, and from now on the log records as they come.
device_settings() {
    # shellcheck disable=SC2086 # a list of words
    settings $own
    cp "$app/settings.xml" "$out/settings.before"
    before=$(date "+%F %T")
    : >"$out/records"
    tail -n +1 -f "$out/records" &
    screen=$!
}

# A management host on the VLAN opens access and sends other settings, which the next credentials put into force.
provision() {
    credentials admin bluefern
    wait_until "access" tftp_get curl "$device_address" settings.xml
    # shellcheck disable=SC2086
    settings_text $own http_password=changed log10=7 >/run/tftp/new
    tftp_put curl "$device_address" new settings.xml || die "the new settings were refused"
    tftp_get curl "$device_address" settings.xml || die "the new settings were not given back"
    cmp /run/tftp/new /run/tftp/got || die "the new settings came back changed"
    credentials admin changed
}

device_summary() {
    echo
    echo "--- What the records say (basenetlog --status) ---"
    "$out/bin/basenetlog" --status "$out/records.raw"
    echo
    echo "--- What came of it ---"
    echo "Addresses of eth1.100:" "$(address_of eth1.100)" "$(address_of eth1.100 6)"
    grep -h . /proc/net/vlan/eth1.100 | grep -E 'VID|priority'
    echo "MTU of eth1.100: $(cat /sys/class/net/eth1.100/mtu)"
    echo; echo "Routes:"; ip -4 route
    echo; echo "resolv.conf:"; cat "$app/resolv.conf"
    echo; echo "dhcp.info:"; cat "$app/dhcp.info"; echo
    echo; echo "From DHCPv6:"
    sed -nE 's/.*DHCPv6: (Set|Add) (DNS|NTP) (domain|server)( to)? /\2 \3: /p' "$out/records"
    echo; echo "Settings before (-) and after (+) provisioning:"
    diff -U 0 "$out/settings.before" "$app/settings.xml" | grep '^[-+]<'
    echo; echo "Time server in use: $(sed -n 's/.*NTP: Use server //p' "$out/records")"
    echo "Clock before: $before"; echo "Clock after:  $after"
}

switch_summary() {
    echo; echo "What the switch heard (LLDP-MED):"
    lldp_neighbour | grep -E 'mgmt-ip|policy\.(vlan|pcp|dscp)'
    echo; echo "Questions for the time, on the wire:"
    tcpdump -n -t -r "$out/wire.pcap" 'vlan and udp and (port 53 or port 123)' 2>/dev/null |
        sed 's/^.*IP //'
}

# A shell of the device's network. What becomes of the daemon is up to the user now.
shell() {
    trap - EXIT
    cd "$app" && ENV=/run/lab/keep.sh PS1='device# ' sh -i # sh reads that file first
}

# The switch port wants 802.1X: the device proves itself before anything else leaves it, and does so again
# later, whenever the switch asks.
# shellcheck shell=sh

guest() {
    switch_vlan 100
    start_dnsmasq p1.100 dhcp-range=10.100.0.77,10.100.0.77,255.255.255.0,1h
    start_hostapd MD5 eap_reauth_period=8
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    settings ieee802_1x_username=base7 ieee802_1x_password=secret
    capture wire
    start_daemon

    wait_log "Starting 802.1X"
    wait_log "EAP: Received"
    wait_log "802.1X Challenge"
    wait_log "802.1X authentication done"
    wait_log "Send LLDP"
    wait_log "Using VLAN 100"
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    wait_log "802.1X Challenge"
    wait_log "802.1X authentication done"
    wait_log "Send LLDP"
    wait_log "Send LLDP"
    expect "leases" 1 "$(log_count "goes to BOUND")"
    expect "address" 10.100.0.77/24 "$(address_of eth1.100)"
    expect "failed authentications" 0 "$(log_count "authentication failed")"
    expect "words from the settings in the log" 0 "$(log_count secret)"
}

host() {
    first=$(frames wire 'eapol || lldp' eapol.type eap.code eap.type eap.identity | head -n 7)
    expect "the exchange, in order" "$(
        echo "1|||"
        echo "0|1|1|"
        echo "0|2|1|base7"
        echo "0|1|4|"
        echo "0|2|4|"
        echo "0|3||"
        echo "|||"
    )" "$first"
    device="eapol && eth.src == $mac"
    expect "destination, version and lengths of the device's frames" "$(
        echo "01:80:c2:00:00:03|1|0|18"
        echo "01:80:c2:00:00:03|1|10|28"
        echo "01:80:c2:00:00:03|1|22|40"
    )" "$(frames wire "$device" eth.dst eapol.version eapol.len frame.len | sort -u)"
    begin=$(frames wire 'eap.code == 1' frame.time_epoch | head -n 1)
    end=$(frames wire 'eap.code == 3' frame.time_epoch | head -n 1)
    own=$(frames wire 'eap' frame.time_epoch eap.code | head -n 5 |
        awk -F'|' '$2 == 1 { asked = $1 } $2 == 2 { sum += $1 - asked } END { printf "%.0f", sum * 1000 }')
    note "from the first request to success $(ms_between "$begin" "$end") ms, the device's part $own ms"
    # Less than 50 on a quiet machine; a busy one has its own pauses.
    expect_between "milliseconds of the device from the first request to success" 0 250 "$own"
}

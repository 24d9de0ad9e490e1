# 802.1X: a port that wants it lets the device in before anything else leaves it, and asks again later. Where the
# port refuses the device, or does not ask at all, the network comes up all the same.

guest() {
    make_voice_vlan
    start_dnsmasq p1.100 dhcp-range=10.100.0.77,10.100.0.77,255.255.255.0,1h
    start_hostapd MSCHAPV2,MD5 eap_reauth_period=3
    come_up asked secret "802.1X Challenge" "802.1X authentication done" "Send LLDP"
    wait_log "802.1X Challenge" "802.1X authentication done" "Send LLDP"
    expect_log 1 "goes to BOUND"
    expect_log 0 secret

    start_hostapd MD5
    come_up refused another "802.1X Challenge" "802.1X authentication failed" "Send LLDP"
    stop_server hostapd
    come_up alone secret "Send LLDP"
}

# come_up NAME PASSWORD TEXT...: a device that has to log these before it gets its lease
come_up() {
    begin_case "$1" ieee802_1x_username=base7 "ieee802_1x_password=$2"
    shift 2
    wait_log "Starting 802.1X" "$@"
    wait_lease 10.100.0.77 eth1.100
}

host() {
    local own="eth.src == $mac"
    expect "the exchange before LLDP" "1||| 0|1|1| 0|2|1|base7 0|1|26| 0|2|3| 0|1|4| 0|2|4| 0|3|| |||" \
        "$(frames asked "eapol || lldp && $own" eapol.type eap.code eap.type eap.identity | head -n 9 | xargs)"
    expect_between "milliseconds from EAPOL-Start to LLDP, without an answer" 2950 4500 \
        "$(ms_between "$(first_frame alone "$own && eapol")" "$(first_frame alone "$own && lldp")")"
}

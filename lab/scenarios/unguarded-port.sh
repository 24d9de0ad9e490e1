# The device is to prove itself, but the port refuses it, wants another method first, speaks a version that is
# not understood, or does not ask at all: the network comes up all the same.
# shellcheck shell=sh

guest() {
    start_dnsmasq p1 dhcp-range=10.1.0.77,10.1.0.77,255.255.255.0,1h

    start_hostapd MD5
    come_up refused secret1 "802.1X authentication failed"
    stop_server hostapd

    start_hostapd MSCHAPV2,MD5
    come_up other secret "802.1X authentication done"
    stop_server hostapd

    start_hostapd MD5 eapol_version=2
    come_up version secret "Send LLDP"
    stop_server hostapd

    come_up alone secret "Send LLDP"
    expect "challenges answered" 2 "$(log_count "802.1X Challenge")"
}

# come_up NAME WORD TEXT: one life of the daemon, captured as NAME
come_up() {
    settings ieee802_1x_username=base7 "ieee802_1x_password=$2"
    capture "$1"
    start_daemon
    wait_log "Starting 802.1X"
    wait_log "$3"
    wait_log "DHCPv4 on eth1 goes to BOUND"
    stop_daemon
    clean_network
    end_capture "$1"
}

host() {
    expect "types asked for and answered, another method first" "1 1 26 3 4 4 success" \
        "$(frames other 'eap.code < 3' eap.type | paste -sd ' ') $([ "$(count_frames other 'eap.code == 3')" = 1 ] && echo success)"
    expect "the Nak's data" 4 "$(frames other "eap.type == 3" eap.desired_type)"
    expect "failures on the wire" 1 "$(count_frames refused 'eap.code == 4')"
    for name in version alone; do
        expect "EAPOL-Starts, $name" 3 "$(count_frames $name "eapol.type == 1 && eth.src == $mac")"
        expect "answers, $name" 0 "$(count_frames $name "eap && eth.src == $mac")"
        begin=$(frames $name 'eapol.type == 1' frame.time_epoch | head -n 1)
        end=$(frames $name "lldp && eth.src == $mac" frame.time_epoch | head -n 1)
        expect_between "milliseconds from the first EAPOL-Start to LLDP, $name" 2950 4500 \
            "$(ms_between "$begin" "$end")"
    done
    expect "requests of version 2 on the wire" yes \
        "$([ "$(count_frames version 'eapol.version == 2 && eap.code == 1')" -gt 0 ] && echo yes)"
}

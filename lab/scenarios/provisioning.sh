# Access is off: only good credentials, or the private key, in the first half minute open it. Then settings are
# sent, and the next credentials put them into force. Without any, nobody listens after 32 seconds.
# shellcheck shell=sh

guest() {
    start_dnsmasq p1 dhcp-range=10.1.0.77,10.1.0.77,255.255.255.0,1h
    settings telnet_enabled=false
    start_daemon
    wait_log "DHCPv4 on eth1 goes to BOUND"

    upload settings.xml "x" && failure "settings were taken without access"
    tftp_get curl "$device_address" settings.xml && failure "settings were given without access"
    credentials admin wrong
    wait_log "TFTP: Authentication failed"
    credentials admin bluefern
    wait_log "TFTP: Authentication succeeded"

    settings_text telnet_enabled=false http_password=changed log10=6 >/run/tftp/new
    tftp_put curl "$device_address" new settings.xml || failure "settings were refused"
    tftp_get curl "$device_address" settings.xml || failure "settings were not given"
    cmp -s /run/tftp/got /run/tftp/new || failure "settings were not given as sent"
    credentials admin bluefern
    wait_log "TFTP: Authentication failed"
    traces=$(log_count " 9 Send LLDP")
    credentials admin changed
    wait_log "TFTP: Authentication succeeded"
    upload ata-app "#!/bin/sh" || failure "the application was refused"
    expect "mode of the application" 755 "$(stat -c %a "$app/ata-app")"
    expect "records above the new log level" "$traces" "$(log_count " 9 Send LLDP")"
    stop_daemon

    # The first private key opens, later it must be the same.
    second_life
    upload /nv/privatekey.txt "key" || failure "the private key was refused"
    expect "private key" "key" "$(cat "$out/nv/privatekey.txt")"
    upload note "text" || failure "the private key did not open access"
    wait_until "32 seconds" older_than 34
    upload later "text" || failure "nobody listens although access is on"
    stop_daemon

    second_life
    upload /nv/privatekey.txt "another"
    upload note "text" && failure "another private key opened access"
    wait_until "32 seconds" older_than 34
    expect "listening sockets" "" "$(listening_sockets)"
    expect "private key" "key" "$(cat "$out/nv/privatekey.txt")"
}

second_life() {
    settings telnet_enabled=false
    start_daemon
    wait_log "DHCPv4 on eth1 goes to BOUND"
    begin=$(date +%s)
}

older_than() {
    [ $(($(date +%s) - begin)) -ge "$1" ]
}

# Of port 69, which is 0045 in hex.
listening_sockets() {
    grep -h ':0045 ' /proc/net/udp /proc/net/udp6
}

host() {
    :
}

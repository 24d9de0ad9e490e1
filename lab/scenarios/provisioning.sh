# Access is off: only good credentials open it. Then settings are sent, and the next credentials put them into force.

guest() {
    ip addr add 10.1.0.77/24 dev eth1 # before the daemon puts it there in the fourth second
    begin_case wire telnet_enabled=false dhcp=false ip_adr=10.1.0.77 netmask=255.255.255.0
    wait_log "Starting LLDP"
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
    credentials admin changed
    wait_log "TFTP: Authentication succeeded"
    upload ata-app "#!/bin/sh" || failure "the application was refused"
    expect "mode of the application" 755 "$(stat -c %a "$app/ata-app")"
}

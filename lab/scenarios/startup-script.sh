# The device's start-up script: one that does not start the telephony application is repaired, and the device
# restarts. The guest really does: this story is told in two lives.
# shellcheck shell=sh

lives=2

guest() {
    script=$out/nv/rc.vorn
    if [ "$life" = 1 ]; then
        printf '#!/bin/sh\n./basenetd&\n' >"$script"
        start_daemon
        sleep 30
        die "the device was not restarted"
    fi
    expect_script "#!/bin/sh
./basenetd&
./ata-app&
"
    # One second for the flash memory, three after the partition is gone.
    expect_between "seconds from the repair to the next life" 4 20 $(($(date +%s) - $(stat -c %Y "$script")))

    left_alone "the repaired script"
    printf '#!/bin/sh\n# ata-app is started elsewhere' >"$script"
    left_alone "a script that names the application in a comment"
    : >"$script"
    left_alone "an empty script"
    rm "$script"
    left_alone "a script that is not there"
}

expect_script() {
    expect "start-up script" "$1." "$(cat "$script" && echo .)"
}

# By the time of the first log line about LLDP the daemon has looked at the script.
left_alone() {
    before=$(cat "$script" 2>&1 && stat -c %Y "$script")
    start_daemon
    wait_log "Starting LLDP"
    stop_daemon
    expect "$1" "$before" "$(cat "$script" 2>&1 && stat -c %Y "$script")"
}

host() {
    expect "starts that went on to the network" 4 "$(grep -c "Starting LLDP" "$out/records")"
}

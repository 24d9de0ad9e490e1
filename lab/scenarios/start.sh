# The start of the daemon. A start-up script that does not start the telephony application is repaired, and the device
# restarts: the guest really does, so that this story is told in two lives. In the second one: the command line.

lives=2

guest() {
    local script=$out/nv/rc.vorn arguments
    if [ "$life" = 1 ]; then
        printf '#!/bin/sh\n./basenetd&\n' >"$script"
        start_daemon
        sleep 60
        die "the device was not restarted"
    fi
    start_daemon
    wait_log "Starting LLDP"
    expect "descriptors from before, as a daemon" 0 "$(descriptors '/dev/null|daemon.out')"
    stop_daemon
    expect "start-up script" "$(printf '#!/bin/sh\n./basenetd&\n./ata-app&\n.')" "$(cat "$script" && echo .)"

    for arguments in --log "--log 5 --pipe" --help "--log 5 more"; do
        # shellcheck disable=SC2086 # a list of words
        timeout 5 unshare --root="$device" --wd=/nv/app /app/basenetd $arguments </dev/null >"$out/refused" 2>&1
        expect "status and text with the arguments $arguments" "1 " "$? $(cat "$out/refused")"
    done
    pipe=other.pipe
    start_daemon --pipe other.pipe --log 5
    wait_log "Read MAC address 02a0b71a2b3c"
    expect "standard descriptors open with --log" 3 "$(descriptors '/dev/null|daemon.out')"
    link_goes DOWN
    expect_log 0 LLDP # of level 9
}

# descriptors PATTERN: how many of the daemon's descriptors lead there
descriptors() {
    find "/proc/$daemon/fd" -type l -printf '%l\n' | grep -cE "$1"
}

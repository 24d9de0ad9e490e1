# The command line: what is wrong ends the daemon at once and silently; --log and --pipe work end to end; only
# with --log do the descriptors that it was started with stay open.
# shellcheck shell=sh

guest() {
    start_log
    refused --log
    refused --pipe
    refused --log 5 --pipe
    refused --help
    refused --log 5 more
    expect "records of refused starts" "" "$(cat "$out/records")"

    start_daemon
    wait_log "Starting LLDP"
    expect "descriptors from before, as a daemon" 0 "$(descriptors '/dev/null|daemon.out')"
    expect "log pipes open" 1 "$(descriptors '/nv/app/net2app')"
    stop_daemon

    before=$(log_count LLDP)
    pipe=other.pipe
    start_daemon --pipe other.pipe --log 5
    wait_log "Read MAC address 02a0b71a2b3c"
    expect "standard descriptors open with --log" "/dev/null daemon.out daemon.out" "$(standard_descriptors)"
    expect "other log pipes open" 0 "$(descriptors '/nv/app/net2app')"
    link_file DOWN
    wait_log "Ethernet link went down on eth1"
    expect "messages above level 5, all about LLDP" "$before" "$(log_count LLDP)"
}

refused() {
    timeout 5 unshare --root="$device" --wd=/nv/app /app/basenetd "$@" </dev/null >"$out/refused" 2>&1
    expect "status with the arguments $*" 1 $?
    expect "printed with the arguments $*" "" "$(cat "$out/refused")"
}

# descriptors PATTERN: how many of the daemon's descriptors lead there
descriptors() {
    for descriptor in /proc/"$daemon"/fd/*; do
        readlink "$descriptor"
    done | grep -cE "$1"
}

standard_descriptors() {
    for descriptor in 0 1 2; do
        readlink "/proc/$daemon/fd/$descriptor"
    done | sed 's,.*/daemon.out,daemon.out,' | paste -sd ' '
}

host() {
    # Record: type, length, kind 2, level, text item. The last one is of level 2.
    text="Ethernet link went down on eth1"
    expect "last record as raw bytes" "$(printf '0000002900000002000200010%03x' ${#text})$(
        printf %s "$text" | od -An -v -tx1 | tr -d ' \n')" \
        "$(tail -c $((14 + ${#text})) "$out/records.raw" | od -An -v -tx1 | tr -d ' \n')"
}

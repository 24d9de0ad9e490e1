# chronyd as NTP server. The guest's clock is its own, too: it never sets it, and serves the time that it is told.

# start_chrony TIME [PORT]: on all addresses of the switch, serving the time from now on ("Jan 1, 2030 00:00:00"), or
# the guest's own time if that is empty
start_chrony() {
    mkdir -p /run/chrony && chmod 700 /run/chrony
    printf '%s\n' "local stratum 5" manual "allow all" "port ${2:-123}" "cmdport 0" \
        "bindcmdaddress /run/chrony/chronyd.sock" "pidfile /run/chrony/chronyd.pid" >/run/chrony.conf
    rm -f /run/chrony/chronyd.sock
    serve chrony "Running with root privileges" chronyd -d -x -u root -f /run/chrony.conf
    [ "$1" ] || return 0
    wait_until "chronyd's command socket" test -S /run/chrony/chronyd.sock
    in_sw chronyc -h /run/chrony/chronyd.sock settime "$1" >>"$out/chronyc.log" 2>&1 ||
        die "chronyd refused the time $1"
}

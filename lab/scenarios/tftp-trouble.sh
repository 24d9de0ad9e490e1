# Many transfers at a time, a bad link, clients that go away, a full and a read-only file system, and /nv on
# another file system than the working directory: no byte is wrong, nothing half-written is left.
# shellcheck shell=sh

guest() {
    app=$device/nv/app
    mount -t tmpfs -o size=2m small "$app"
    start_dnsmasq p1 dhcp-range=10.1.0.77,10.1.0.77,255.255.255.0,1h
    load_modules net/sched/sch_netem
    start_daemon
    wait_log "DHCPv4 on eth1 goes to BOUND"

    # A client that goes away in the middle; the transfer is closed a minute later.
    random_file big 1000000
    slow_link
    in_sw curl -s -T /run/tftp/big tftp://10.1.0.77/interrupted >>"$out/tftp.log" 2>&1 &
    client=$!
    wait_until "a temporary file" test -e "$app/tmp.1"
    kill -9 $(pgrep -P $client) $client 2>>"$out/tftp.log"

    # Small: a client repeats a lost block after five seconds, and a write has a minute.
    random_file small 10240
    cp /run/tftp/small "$app/small"
    transfers 16
    in_sw tc qdisc del dev p1 root
    tc qdisc del dev eth1 root
    transfers 32

    upload /nv/apart/text "on another file system" || failure "nothing could be written to /nv"
    expect "file on another file system" "on another file system" "$(cat "$out/nv/apart/text")"

    random_file huge 3000000
    echo old >"$app/huge"
    tftp_put curl 10.1.0.77 huge huge
    expect "file that did not fit" old "$(cat "$app/huge")"
    wait_until "the temporary files to go" no_temporary_files
    mount -o remount,ro "$app"
    upload small "new"
    mount -o remount,rw "$app"
    cmp -s "$app/small" /run/tftp/small || failure "a file changed on a read-only file system"

    wait_log "TFTP: Close port"
    wait_until "the temporary files to go" no_temporary_files
    expect "interrupted file" "" "$(find "$app" -name interrupted)"
    upload after "still there" || failure "nothing could be written at the end"
    expect "file at the end" "still there" "$(cat "$app/after")"
}

slow_link() {
    in_sw tc qdisc add dev p1 root netem delay 2ms 1ms loss 2% duplicate 5% reorder 10%
    tc qdisc add dev eth1 root netem delay 2ms 1ms loss 2% duplicate 5% reorder 10%
}

no_temporary_files() {
    [ -z "$(find "$app" -name 'tmp*')" ]
}

# transfers COUNT: half of them read, half of them write, all at the same time
transfers() {
    pids=
    for n in $(seq "$1"); do
        if [ $((n % 2)) = 0 ]; then
            in_tftp curl -s -o "got$n" tftp://10.1.0.77/small &
        else
            in_tftp tftp -m octet 10.1.0.77 -c put small "put$n" >>"$out/tftp.log" 2>&1 &
        fi
        pids="$pids $!"
    done
    for pid in $pids; do
        wait "$pid" || failure "a transfer of $1 failed with $?"
    done
    for file in /run/tftp/got* "$app"/put*; do
        cmp -s "$file" /run/tftp/small || failure "$file of $1 transfers is wrong"
    done
    expect "files of $1 transfers" "$1" "$(find /run/tftp/got* "$app"/put* | wc -l)"
    rm -f /run/tftp/got* "$app"/put*
}

host() {
    :
}

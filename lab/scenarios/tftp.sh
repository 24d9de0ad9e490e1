# Four TFTP clients read and write, by IPv4, IPv6 and link-local addresses; eight at a time; on a bad link; with a full
# and a read-only partition, and /nv on another file system. No byte is wrong, nothing half-written is left.

guest() {
    local client host link_local
    app=$device/nv/app
    mount -t tmpfs -o size=10m files "$app"
    ip addr add 2001:db8:1::2/64 dev eth1 nodad
    settings telnet_enabled=true dhcp=false ip_adr=10.1.0.77 netmask=255.255.255.0
    start_daemon
    wait_until "the static address" has_address eth1 # the link-local one is older
    link_local=$(ip -o -6 addr show dev eth1 scope link | awk '{ sub("/.*", "", $4); print $4 }')
    random_file 512 512 # a whole block needs an empty one behind it
    random_file 10240 10240
    for client in $tftp_clients; do
        for host in 10.1.0.77 2001:db8:1::2 "$link_local%p1"; do
            round_trip "$client" "$host" 512
        done
    done

    upload /nv/apart/text "on another file system" || failure "nothing could be written to /nv"
    expect "file on another file system" "on another file system" "$(cat "$out/nv/apart/text")"
    upload small "old"
    head -c 20000000 /dev/zero >"$app/fill" 2>/dev/null
    tftp_put curl 10.1.0.77 10240 small
    rm "$app/fill"
    mount -o remount,ro "$app"
    upload small "new"
    mount -o remount,rw "$app"
    expect "file that could not be replaced" old "$(cat "$app/small")"

    random_file big 8388608
    read_at_once big
    load_modules net/sched/sch_netem
    in_sw tc qdisc add dev p1 root netem delay 2ms 1ms loss 2% duplicate 5% reorder 10%
    tc qdisc add dev eth1 root netem delay 2ms 1ms loss 2% duplicate 5% reorder 10%
    read_at_once 10240 # small: a client repeats a lost packet after five seconds
    round_trip tftp 10.1.0.77 10240
    expect "temporary files" "" "$(find "$app" -name 'tmp*')"
}

# round_trip CLIENT HOST FILE
round_trip() {
    tftp_put "$1" "$2" "$3" up
    wait_log "TFTP: Receive up"
    cmp -s "$app/up" "/run/tftp/$3" || failure "$1 wrote $3 bytes to $2 wrong"
    tftp_get "$1" "$2" up
    cmp -s /run/tftp/got "/run/tftp/$3" || failure "$1 read $3 bytes from $2 wrong"
    rm -f "$app/up"
}

# read_at_once FILE: by eight clients
read_at_once() {
    local n clients=''
    cp "/run/tftp/$1" "$app"
    for n in 1 2 3 4 5 6 7 8; do
        { tftp_get curl 10.1.0.77 "$1" "got$n" && cmp -s "/run/tftp/got$n" "/run/tftp/$1"; } ||
            failure "reader $n of the file \"$1\" did not get it whole" &
        clients="$clients $!"
    done
    # shellcheck disable=SC2086 # a list of words
    wait $clients
    expect_log 8 "TFTP: Request for $1 from" # nobody had to ask again
    rm "$app/$1"
}

# Four TFTP clients read and write files of all sizes, by IPv4, IPv6 and link-local addresses.
# shellcheck shell=sh

guest() {
    ip addr add 2001:db8:1::2/64 dev eth1 nodad
    ip addr add 10.1.0.2/24 dev eth1
    start_dnsmasq p1 dhcp-range=10.1.0.77,10.1.0.77,255.255.255.0,1h
    start_daemon # without settings, so that access is on
    wait_log "DHCPv4 on eth1 goes to BOUND"
    wait_until "the link-local address" has_link_local
    link_local=$(ip -o -6 addr show dev eth1 scope link | awk '{ sub("/.*", "", $4); print $4 }')

    big=8388608
    for size in 1 511 512 513 $big; do
        random_file "$size" "$size"
        cp "/run/tftp/$size" "$app/f$size"
    done
    for client in $tftp_clients; do
        for host in 10.1.0.77 2001:db8:1::2 "$link_local%p1"; do
            for size in 1 511 512 513; do
                round_trip "$client" "$host" $size
            done
        done
    done
    begin=$(date +%s%N)
    round_trip curl 10.1.0.77 $big
    note "8 MiB read and written in $((($(date +%s%N) - begin) / 1000000)) ms"
    round_trip atftp 2001:db8:1::2 $big

    : >/run/tftp/empty
    tftp_put atftp 10.1.0.77 empty nothing
    expect "size of the empty file" 0 "$(wc -c <"$app/nothing")"
    for client in curl atftp busybox; do
        tftp_get "$client" 10.1.0.77 nothing && failure "$client could read an empty file"
        tftp_get "$client" "$link_local%p1" missing && failure "$client could read a missing file"
    done
    expect "files that were not found" 6 "$(log_count "not found")"
    expect "temporary files" "" "$(find "$app" -name 'tmp*')"
}

has_link_local() {
    ip -o -6 addr show dev eth1 scope link | grep -qv tentative
}

# round_trip CLIENT HOST SIZE
round_trip() {
    tftp_get "$1" "$2" "f$3"
    cmp -s "/run/tftp/got" "/run/tftp/$3" || failure "$1 read $3 bytes from $2 wrong"
    rm -f "$app/up"
    tftp_put "$1" "$2" "$3" up
    wait_log "TFTP: Receive up"
    cmp -s "$app/up" "/run/tftp/$3" || failure "$1 wrote $3 bytes to $2 wrong"
}

host() {
    :
}

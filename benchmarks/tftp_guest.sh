# The guest part of benchmarks/tftp: every server in turn, started anew for each measurement. One line for
# each goes to $out/results: row, server, transfers, seconds, processor microseconds, retransmissions.
# shellcheck shell=sh disable=SC2154,SC2086

address=10.1.0.2
line=0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwx # the client's pattern
servers="basenetd-0 basenetd-9 tftpd-hpa atftpd dnsmasq"
peers=$LAB/../build/peers
group=/run/cgroup/server # counts the processor time of whatever ran in it, ended processes included

guest() {
    app=$device/nv/app
    mount -t tmpfs files "$app"
    chmod 777 "$app"
    mkdir /run/cgroup
    mount -t cgroup2 cgroup /run/cgroup || die "no control groups"
    mkdir $group
    ip addr add $address/24 brd + dev eth1
    # Nothing but LLDP goes on beside the transfers.
    settings dhcp=false ip_adr=$address netmask=255.255.255.0 telnet_enabled=true
    for round in $(seq "$(cat $out/rounds)"); do
        while read -r row size parallel transfers; do
            for server in $servers; do
                count=$transfers
                if [ "$row" = calls ]; then
                    [ "$round" != 1 ] || [ "$server" = basenetd-9 ] || count_calls
                elif [ "$server" != dnsmasq ] || [ "${row%%-*}" != write ]; then
                    measure
                fi
            done
        done <$out/plan
    done
}

measure() {
    content=$app/$size
    [ -e "$content" ] || yes $line | head -c "$size" >"$content"
    # This one forks for each transfer and takes some fifty times as long.
    [ "$server $size" != "tftpd-hpa 512" ] || count=$((count / 20))
    start_server
    transfer read 1 1 # the first is slower
    before=$(cpu_time)
    transfer "${row%%-*}" "$parallel" "$count"
    echo "$row $server $count ${said%% *} $(($(cpu_time) - before)) $(echo "$said" | awk '{ print $(NF - 1) }')" \
        >>$out/results
    stop_server
    for written in "$content".*; do
        [ ! -e "$written" ] || cmp "$written" "$content" || failure "$server stored wrong bytes"
        rm -f "$written"
    done
}

transfer() {
    said=$(in_sw $out/bin/tftp_client "$1" $address 69 "$size" "$size" "$2" "$3") || die "$row: $server failed"
}

cpu_time() {
    awk '/^usage_usec/ { print $2 }' $group/cpu.stat
}

start_server() {
    case $server in
    basenetd-*)
        start_daemon --log "${server#*-}"
        pid=$daemon
        echo "$pid" >$group/cgroup.procs
        ;;
    tftpd-hpa) in_group "$peers/tftpd-hpa/usr/sbin/in.tftpd" -L -c -u root -s "$app" ;;
    atftpd) in_group "$peers/atftpd/usr/sbin/atftpd" --daemon --no-fork --user root --group root --verbose=0 "$app" ;;
    dnsmasq)
        in_group dnsmasq --conf-file=/dev/null --keep-in-foreground --user=root --port=0 --pid-file= \
            --log-facility=/dev/null --quiet-tftp --enable-tftp --tftp-root="$app"
        ;;
    esac
    wait_until "$server to listen" listens
    case $server in
    basenetd-*)
        # From now on a reader that costs as little as one can.
        end_process "$reader"
        cat "$app/$pipe" >/dev/null &
        reader=$!
        ;;
    esac
}

in_group() {
    sh -c 'echo $$ >"$0/cgroup.procs" && exec "$@"' $group "$@" >>"$out/$server.log" 2>&1 &
    pid=$!
}

listens() {
    grep -q ":0045 " /proc/net/udp /proc/net/udp6
}

stop_server() {
    case $server in
    basenetd-*) stop_daemon ;;
    *)
        end_process "$pid"
        echo 1 >$group/cgroup.kill # its children
        ;;
    esac
    wait_until "$server to end" is_silent
}

is_silent() {
    ! listens
}

# Of all that the server does for one transfer, as strace sees it.
count_calls() {
    content=$app/$size
    [ -e "$content" ] || yes $line | head -c "$size" >"$content"
    start_server
    strace -c -f -p "$pid" -o "$out/calls.$server" 2>"$out/strace.log" &
    tracer=$!
    wait_until "strace" file_says "$out/strace.log" attached
    transfer read "$parallel" "$count"
    kill -INT $tracer
    wait $tracer
    stop_server
}

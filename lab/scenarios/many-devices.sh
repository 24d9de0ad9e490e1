# Many devices that start at the same instant behind one switch, as after a power cut: each gets a lease and the
# time, since no two of them use the same transaction id.

devices=30

guest() {
    local n
    load_modules net/bridge/bridge
    ip -n sw addr flush dev p1
    ip -n sw link add hub type bridge
    ip -n sw link set p1 master hub up
    ip -n sw link set hub up
    ip -n sw addr add 10.1.0.1/24 dev hub
    start_dnsmasq hub dhcp-range=10.1.0.10,10.1.0.250,255.255.255.0,infinite dhcp-option=42,10.1.0.1
    start_chrony "Jan 1, 2030 00:00:00"
    capture wire
    mkfifo /run/power
    for n in $(seq $devices); do
        one_more "$n"
    done
    sleep 2 # until all of them wait for the power
    true >/run/power
    for n in $(seq $devices); do
        # All of them share the guest's clock, which is set then.
        wait_until "the time for device $n" file_says "$out/devices/$n/records" "NTP: Use server 10.1.0.1"
    done
    expect "leases" $devices "$(wc -l </run/dnsmasq.leases)"
    expect "daemons that run" $devices "$(pgrep -xc basenetd)"
    end_process "$watcher"
}

# A device in a namespace of its own, with its own /nv in the common root.
one_more() {
    local home=$out/devices/$1 name=device$1
    mkdir -p "$home/app"
    printf '02:a0:b7:00:01:%02x' "$1" >"$home/mac.txt"
    "$out"/bin/basenetlog --create "$home/app/$pipe" >"$home/records" 2>&1 &
    wait_until "the log pipe of $name" test -p "$home/app/$pipe"
    ip netns add "$name"
    ip -n "$name" link add eth1 type veth peer name "port$1" netns sw
    ip -n sw link set "port$1" master hub up
    ip -n "$name" link set eth1 address "$(cat "$home/mac.txt")" up
    ip netns exec "$name" sh -c "mount --bind $home $device/nv && read -r nothing </run/power
        exec unshare --root=$device --wd=/nv/app /app/basenetd </dev/null" >>"$out/daemon.out" 2>&1 &
}

host() {
    expect "ids of which each belongs to one device" $devices \
        "$(frames wire 'dhcp.option.dhcp == 1' eth.src dhcp.id | sort -u | cut -d'|' -f2 | sort | uniq -u | wc -l)"
}

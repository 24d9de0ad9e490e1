# Many devices that start at the same instant behind one switch, as after a power cut: each gets a lease, since no two
# of them use the same transaction id.

devices=30

guest() {
    local n
    load_modules net/bridge/bridge
    ip -n sw addr flush dev p1
    ip -n sw link add hub type bridge
    ip -n sw link set p1 master hub up
    ip -n sw addr add 10.1.0.1/24 dev hub
    ip -n sw link set hub up
    start_dnsmasq hub dhcp-range=10.1.0.10,10.1.0.250,255.255.255.0,1h
    capture wire
    mkfifo /run/power
    for n in $(seq $devices); do
        one_more "$n"
    done
    sleep 2 # until all of them wait for the power
    true >/run/power
    wait_until "all leases" awk -v all=$devices 'END { exit NR != all }' /run/dnsmasq.leases
}

# A device in a namespace of its own, with its own /nv in the common root.
one_more() {
    local home=$out/devices/$1 name=device$1
    mkdir -p "$home/app"
    printf '02:a0:b7:00:01:%02x' "$1" >"$home/mac.txt"
    ip netns add "$name"
    ip -n sw link add "port$1" type veth peer name eth1 address "$(cat "$home/mac.txt")" netns "$name"
    ip -n sw link set "port$1" master hub up
    ip -n "$name" link set eth1 up
    ip netns exec "$name" sh -c "mount --bind $home $device/nv && read -r nothing </run/power
        exec unshare --root=$device --wd=/nv/app /app/basenetd </dev/null" >>"$out/daemon.out" 2>&1 &
}

host() {
    expect "ids of which each belongs to one device" $devices \
        "$(frames wire 'dhcp.option.dhcp == 1' eth.src dhcp.id | sort -u | cut -d'|' -f2 | sort | uniq -u | wc -l)"
}

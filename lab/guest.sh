# What the guest part of a scenario is told with. The device is the guest's own network namespace, in a
# folder tree like the device's; the switch and every server live in the namespace "sw", on the other
# end of the wire.

out=/run/out        # what the machine gets to see
device=/run/device  # root of the device's tree
app=/run/out/nv/app # the daemon's working directory, as the machine sees it too
pipe=net2app        # the log pipe in it
daemon=             # process id, as are the next two
reader=
watcher=
earlier_records=0 # those of daemons before this one

# --- waiting ---

# die TEXT: ends the scenario
die() {
    failure "$*"
    exit 1
}

# wait_until WHAT COMMAND...: until COMMAND succeeds. Generous: a loaded machine is several times slower.
wait_until() {
    local what=$1 tries=0
    shift
    until "$@"; do
        tries=$((tries + 1))
        # shellcheck disable=SC2317 # where die() only tells
        [ $tries -lt 300 ] || { die "waited 30 s in vain for $what"; return 1; }
        sleep 0.1
    done
}

file_says() {
    grep -qsF -- "$2" "$1"
}

# wait_log TEXT...: until the daemon has logged lines that hold each TEXT, behind the line that the wait_log
# before it found: a story tells things in their order. Descriptor 3 keeps the place in the log.
wait_log() {
    local text
    for text; do
        wait_until "the log line \"$text\"" log_says "$text"
    done
}

log_says() {
    local record
    while read -r record <&3; do
        case $record in
        *"$1"*) return 0 ;;
        esac
    done
    daemon_runs || die "the daemon ended while the log line \"$1\" was awaited"
    return 1
}

# log_count TEXT: how many of this daemon's log lines hold TEXT
log_count() {
    tail -n +$((earlier_records + 1)) $out/records | grep -cF -- "$1"
}

# expect_log COUNT TEXT
expect_log() {
    expect "log lines that hold \"$2\"" "$1" "$(log_count "$2")"
}

# --- network ---

# A module that is in already is no failure.
load_modules() {
    local module
    for module; do
        busybox insmod "/usr/lib/uml/modules/$(uname -r)/kernel/$module.ko" 2>/dev/null
    done
}

make_network() {
    local each
    load_modules lib/crc-ccitt net/ipv6/ipv6 net/llc/llc net/802/stp net/802/garp net/802/mrp \
        net/8021q/8021q drivers/net/veth
    ip link set lo up
    ip netns add sw
    ip -n sw link set lo up
    make_wire
    for each in default p1; do
        echo 0 | in_sw tee /proc/sys/net/ipv6/conf/$each/accept_dad >/dev/null
    done
    ip -n sw link set p1 up
    ip -n sw addr add 10.1.0.1/24 dev p1
    ip -n sw addr add 2001:db8:1::1/64 dev p1
}

# From the device's interface eth1 to the switch's port p1.
make_wire() {
    ip link add eth1 type veth peer name p1 netns sw
    ip link set eth1 address "$mac" up
}

in_sw() {
    ip netns exec sw "$@"
}

# switch_vlan ID: the switch's interface p1.ID in that VLAN, with the addresses 10.ID.0.1/24 and 2001:db8:ID::1/64
switch_vlan() {
    ip -n sw link add link p1 name "p1.$1" type vlan id "$1"
    ip -n sw link set "p1.$1" up
    ip -n sw addr add "10.$1.0.1/24" dev "p1.$1"
    ip -n sw addr add "2001:db8:$1::1/64" dev "p1.$1"
}

# address_of INTERFACE [6]: the IPv4 addresses of a device interface, "10.100.0.77/24", or the global IPv6 ones
address_of() {
    ip -o "-${2:-4}" addr show dev "$1" scope global 2>/dev/null | awk '{ print $4 }'
}

# wait_lease NETWORK.HOST INTERFACE: until DHCP has put that address there, with the gateway NETWORK.1
wait_lease() {
    wait_log "DHCPv4 on $2 goes to BOUND"
    expect "address of $2" "$1/24" "$(address_of "$2")"
    expect "default route by $2" "default via ${1%.*}.1 dev $2" "$(ip -4 route show default | sed 's/ *$//')"
}

has_address() {
    [ -n "$(address_of "$@")" ]
}

broadcast_of() {
    ip -o -4 addr show dev "$1" | sed -n 's/.* brd \([^ ]*\).*/\1/p'
}

# egress_map VLAN: which tag priority each socket priority gets, "0:5"
egress_map() {
    sed -n 's/.*EGRESS priority mappings: *//p' "/proc/net/vlan/$1" | sed 's/ *$//'
}

# capture NAME: every frame of the wire from now on goes to NAME.pcap
capture() {
    tcpdump -Z root -U --immediate-mode -B 16384 -i eth1 -w - >"$out/$1.pcap" 2>"$out/$1.tcpdump" &
    watcher=$!
    wait_until "the capture" file_says "$out/$1.tcpdump" "listening on"
}

# captured NAME FILTER COUNT: that many frames are in the capture already
captured() {
    [ "$(tcpdump -n -r "$out/$1.pcap" "$2" 2>/dev/null | wc -l)" -ge "$3" ]
}

end_process() {
    kill "$1" 2>/dev/null
    wait "$1" 2>/dev/null
}

# serve NAME READY COMMAND...: starts a server on the switch's side; it is ready when it says READY.
# It takes the place of one with that name, and begins a new log.
serve() {
    local name=$1 ready=$2
    shift 2
    [ ! -e "/run/$name.pid" ] || stop_server "$name"
    ip netns exec sw "$@" >"$out/$name.log" 2>&1 &
    echo $! >"/run/$name.pid"
    wait_until "$name to say \"$ready\"" file_says "$out/$name.log" "$ready"
}

stop_server() {
    end_process "$(cat "/run/$1.pid")"
    rm -f "/run/$1.pid"
    mv "$out/$1.log" "$out/$1.$(date +%s).log"
}

# --- device ---

make_device() {
    local folder
    mkdir -p $device/proc/.k $device/proc/avalanche $device/nv $device/app $device/dev
    mount -t proc proc $device/proc/.k
    # Resolved by the reader, so that each process sees its own namespace.
    ln -s .k/self/net $device/proc/net
    ln -s .k/sys $device/proc/sys
    ln -s .k/uptime $device/proc/uptime
    mknod $device/dev/null c 1 3
    mknod $device/dev/urandom c 1 9
    for folder in lib lib64 usr/lib; do
        mkdir -p "$device/$folder"
        mount --bind "/$folder" "$device/$folder"
        mount -o remount,bind,ro "$device/$folder"
    done
    mount --bind $out/nv $device/nv
    cp $out/bin/basenetd $device/app/
    link_file UP
    echo "$mac" | tr -d '\n' >$out/nv/mac.txt
    echo "6.4.2 build 7" >$out/nv/base.txt
    echo "SN0042" | tr -d '\n' >$out/nv/serial.txt
}

# The Ethernet driver's word on the link. Replaced by rename: nobody may read it half written.
link_file() {
    local bit=0
    # shellcheck disable=SC2317 # where die() only tells
    case $1 in
    UP | DOWN) ;;
    *) die "link_file UP or DOWN" || return ;;
    esac
    [ "$1" = UP ] && bit=1
    echo "eth1: port 1: $1 link=$bit, speed=100, duplex=full" >$device/proc/avalanche/new
    mv $device/proc/avalanche/new $device/proc/avalanche/cpmac_link
}

# link_goes UP|DOWN: until the daemon knows
link_goes() {
    link_file "$1"
    wait_log "Ethernet link went $(echo "$1" | tr UPDOWN updown)"
}

# settings NAME=VALUE...: writes settings.xml
settings() {
    settings_text "$@" >"$app/settings.xml"
}

# The log level, "log10" among the daemon's settings, is written by its index.
settings_text() {
    local setting
    printf '<?xml version="1.0"?>\n<settings>\n<phone-settings>\n'
    for setting; do
        printf '<%s perm="RW">%s</%s>\n' "${setting%%=*}" "${setting#*=}" "${setting%%=*}"
    done | sed 's/<log10/<log idx="10"/; s/log10>/log>/'
    printf '</phone-settings>\n</settings>\n'
}

# start_daemon ARGUMENT...: the log reader first, so that no record is lost
start_daemon() {
    start_log
    unshare --root=$device --wd=/nv/app /app/basenetd "$@" </dev/null >>$out/daemon.out 2>&1 &
    daemon=$!
}

start_log() {
    : >>$out/records
    [ -n "$reader" ] || exec 3<$out/records
    earlier_records=$(wc -l <$out/records)
    $out/bin/basenetlog --create --raw $out/records.raw "$app/$pipe" >>$out/records 2>>$out/reader.out &
    reader=$!
    wait_until "the log pipe" test -p "$app/$pipe"
}

daemon_runs() {
    [ -e "/proc/$daemon/exe" ] # gone for a zombie
}

# The daemon may never end by itself, nor print anything.
check_daemon() {
    [ -n "$daemon" ] || return 0
    if ! daemon_runs; then
        wait "$daemon"
        failure "the daemon ended by itself, status $?"
    fi
    expect "printed by the daemon" "" "$(cat $out/daemon.out)"
}

stop_daemon() {
    check_daemon
    end_process "$daemon"
    end_process "$reader"
    daemon=
    cat <&3 >/dev/null # what this one logged is not the next one's
}

# begin_case NAME SETTING=VALUE...: a fresh device with these settings, or none, takes the place of the one before.
# Its frames go to NAME.pcap.
begin_case() {
    if [ "$daemon" ]; then
        stop_daemon
        end_process "$watcher"
        clean_network
    fi
    capture "$1"
    shift
    [ $# = 0 ] || settings "$@"
    start_daemon
}

# Puts the network back as it was before the daemon came.
clean_network() {
    local vlan
    ip link show type vlan | sed -n 's/^[0-9]*: \([^@]*\)@.*/\1/p' | while read -r vlan; do
        ip link del "$vlan"
    done
    ip -4 addr flush dev eth1
    rm -f $app/settings.xml $app/resolv.conf $app/dhcp.info
}

# clock_in YEAR: the device's clock is the guest's, and every server's
clock_in() {
    [ "$(date +%Y)" = "$1" ]
}

# memory_kb [HWM]: what the daemon holds, or held at most
memory_kb() {
    awk -v name="Vm${1:-RSS}:" '$1 == name { print $2 }' "/proc/$daemon/status"
}

# The guest part of benchmarks/footprint: every candidate in turn on the network of ./run, idle and bound. Lines go
# to $out/results: candidate, what was measured, value.
# shellcheck shell=sh disable=SC2154,SC2086,SC2046,SC1091
. ./demo.sh # of the lab, whose folder this is run in

peers=$LAB/../build/peers
groups=/run/cgroup
seconds=$(cat $out/seconds)
builds=$(cat $out/builds)

guest() {
    mkdir $groups
    mount -t cgroup2 cgroup $groups || die "no control groups"
    # The device starts at the right time, and its programs may all set the clock.
    # shellcheck disable=SC2034 # start_servers wants it
    server_time=$(date "+%b %d, %Y %H:%M:%S")
    start_servers
    mount --bind $out/bin $device/app
    echo nothing >$out/window
    sleep 2
    poller
    for build in $builds; do
        daemon $build
    done
    usual_set
}

result() {
    echo "$*" >>$out/results
}

# in_group NAME COMMAND...: every process that comes of it is in the control group NAME
in_group() {
    mkdir $groups/$1
    group=$1
    shift
    sh -c 'echo $$ >"$0/cgroup.procs" && exec "$@"' $groups/$group "$@" >>$out/$group.device.log 2>&1 </dev/null &
}

processes() {
    for group; do
        cat $groups/$group/cgroup.procs
    done
}

end_group() {
    echo 1 >$groups/$1/cgroup.kill
    wait_until "$1 to end" rmdir $groups/$1 2>/dev/null
}

# cpu_window CANDIDATE: the machine measures what all processes take that are younger than the servers. Of these
# the candidate's alone may run.
cpu_window() {
    kill -STOP $reader $(cat /run/lldpd.pid) 2>/dev/null # the reader may have ended
    echo $1 >$out/window
    sleep $((seconds + 4))
    kill -CONT $reader $(cat /run/lldpd.pid) 2>/dev/null
}

# memory CANDIDATE GROUP...
memory() {
    candidate=$1
    shift
    for process in $(processes "$@"); do
        cat /proc/$process/smaps_rollup
    done | awk -v c=$candidate '
        { kb[$1] += $2 }
        END {
            print c, "rss", kb["Rss:"]
            print c, "pss", kb["Pss:"]
            print c, "private", kb["Private_Clean:"] + kb["Private_Dirty:"]
            print c, "private-dirty", kb["Private_Dirty:"]
        }' >>$out/results
}

# wakeups CANDIDATE GROUP...: how often a process went on after it had waited
wakeups() {
    candidate=$1
    shift
    before=$(waits "$@") frames=$(frames_of_device)
    sleep $seconds
    result $candidate wakeups $(($(waits "$@") - before))
    result $candidate frames $(($(frames_of_device) - frames))
}

waits() {
    for process in $(processes "$@"); do
        cat /proc/$process/task/*/status
    done | awk '/^voluntary_ctxt_switches/ { sum += $2 } END { print sum }'
}

frames_of_device() {
    echo $(($(cat /sys/class/net/eth1/statistics/rx_packets) + $(cat /sys/class/net/eth1/statistics/tx_packets)))
}

# system_calls CANDIDATE GROUP...
system_calls() {
    candidate=$1
    shift
    traced=$(processes "$@")
    strace -f -c -o $out/calls.$candidate $(for process in $traced; do echo -p $process; done) 2>$out/strace.log &
    tracer=$!
    for process in $traced; do
        wait_until "strace" file_says $out/strace.log "Process $process attached"
    done
    sleep $seconds
    kill -INT $tracer
    wait $tracer
    result $candidate system-calls "$(awk '$NF == "total" { calls = $4 } END { print calls + 0 }' $out/calls.$candidate)"
}

poller() {
    in_group poller $out/bin/link_poller $device/proc/avalanche/cpmac_link
    sleep 3
    cpu_window poller
    memory poller poller
    wakeups poller poller
    system_calls poller poller
    end_group poller
}

daemon() {
    # From a file system of the machine: the pages of a file in memory would count as the process's own.
    cp $out/bin/$1 $out/bin/basenetd
    # A switch that knows the device already would wait with its policy.
    stop_server lldpd
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
    settings $own
    start_daemon --log 9
    mkdir $groups/$1
    echo $daemon >$groups/$1/cgroup.procs
    wait_log "DHCPv4 on eth1.100 goes to BOUND"
    wait_log "NTP: Use server"
    wait_log "DHCPv6: Set NTP server to"
    if [ $1 = x86-64 ]; then # the others wait and call as often
        sleep 35             # until access is off
        cpu_window $1
        wakeups $1 $1
        system_calls $1 $1
    fi
    memory $1 $1
    stop_daemon
    rmdir $groups/$1
    clean_network
}

# What each part of the daemon stands in for. The VLAN is there already.
usual_set() {
    ip link add link eth1 name eth1.100 type vlan id 100
    ip link set eth1.100 up
    start_wpa_supplicant
    start_dhcpcd
    in_group lldpd lldpd -d -M 3 -I eth1 -C eth1 -O /dev/null -u /run/lldpd-device.sock
    echo "server=10.100.0.53" >/run/resolver.conf
    in_group dnsmasq dnsmasq --conf-file=/run/resolver.conf --keep-in-foreground --user=root --no-resolv --no-hosts \
        --pid-file= --log-facility=- --listen-address=127.0.0.1 --bind-interfaces
    wait_until "a lease for dhcpcd" has_address eth1.100
    printf '%s\n' "server 10.100.0.123 iburst" "cmdport 0" "bindcmdaddress /" "pidfile /run/chronyd-device.pid" \
        >/run/chrony-device.conf
    in_group chronyd chronyd -d -u root -f /run/chrony-device.conf
    in_group tftpd-hpa $peers/tftpd-hpa/usr/sbin/in.tftpd -L -u root -s $device/nv
    wait_until "wpa_supplicant to be let in" file_says $out/wpa_supplicant.device.log CTRL-EVENT-EAP-SUCCESS
    wait_until "chronyd to have the time" file_says $out/chronyd.device.log "Selected source"
    sleep 35 # as for the daemon

    set="wpa_supplicant lldpd dhcpcd dnsmasq chronyd tftpd-hpa"
    cpu_window set
    for program in $set; do
        memory $program $program
    done
    wakeups set $set
    system_calls set $set
    files
}

start_wpa_supplicant() {
    cat >/run/wpa_supplicant.conf <<END
ap_scan=0
network={
key_mgmt=IEEE8021X
eap=MD5
identity="base7"
password="secret"
eapol_flags=0
}
END
    in_group wpa_supplicant $peers/wpasupplicant/sbin/wpa_supplicant -D wired -i eth1 -c /run/wpa_supplicant.conf
}

# It gives up its rights to a user of its own and keeps files below /var.
start_dhcpcd() {
    cp /etc/passwd /run/passwd
    grep -q ^dhcpcd: /run/passwd || echo "dhcpcd:x:65533:65534::/run/dhcpcd:/usr/sbin/nologin" >>/run/passwd
    mount --bind /run/passwd /etc/passwd
    mount -t tmpfs var /var/lib
    mkdir -p /var/lib/dhcpcd /run/dhcpcd
    in_group dhcpcd $peers/dhcpcd-base/usr/sbin/dhcpcd -B -f /dev/null -c /bin/true eth1.100
}

# What the set's processes have open to run: files of programs, and of libraries.
files() {
    for program in $set; do
        for process in $(processes $program); do
            awk '$2 ~ /x/ && $6 ~ /^\// { print $6 }' /proc/$process/maps
        done | sort -u >/run/$program.files
        grep -v '\.so' /run/$program.files | sizes $program files
        grep '\.so' /run/$program.files | sizes $program libraries
    done
    cat /run/*.files | sort -u | grep '\.so' | sizes set libraries
}

sizes() {
    result "$@" "$(xargs stat -L -c %s | awk '{ sum += $1 } END { print sum }')"
}

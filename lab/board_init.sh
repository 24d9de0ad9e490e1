#!/bin/busybox sh
# First process of the emulated board, whose file system is in memory but for the programs and their library. It
# brings up what the device's own system would, starts the daemon, and ends the board when the daemon has come onto the
# network and was provisioned.
# shellcheck disable=SC2154,SC1091
/bin/busybox --install -s /bin
export PATH=/bin
mount -t devtmpfs dev /dev
exec </dev/console >/dev/console 2>&1
mount -t proc proc /proc
mount -t sysfs sys /sys
for module in llc stp garp mrp 8021q mii pcnet32 loop squashfs; do
    insmod "/modules/$module.ko"
done
mount -o loop,ro -t squashfs /flash.image /flash
mount --bind /flash/lib /lib
mkdir -p /run/out/nv/app
ln -s /flash /run/out/bin
cd /lab || exit
. ./expect.sh
. ./guest.sh
. ./demo.sh
trap 'cat "$out/failures" "$out/daemon.out" 2>/dev/null; reboot -f' EXIT

# By the start script that device makers get as an example. Its application only tells that it was started.
start_daemon() {
    start_log
    chroot "$device" /bin/sh /nv/rc.vorn </dev/null >>"$out/daemon.out" 2>&1
    wait_until "the daemon" pidof basenetd >/run/daemon
    daemon=$(cat /run/daemon)
    wait_until "the application" test -e "$app/application.started"
}

make_start_script() {
    cp rc.vorn "$out/nv/"
    mkdir -p "$device/usr/sbin" && ln -s /app/basenetd "$device/usr/sbin/basenetd"
    printf '#!/bin/sh\ntouch application.started\n' >"$app/ata-app"
    chmod +x "$app/ata-app"
}

credentials_came_twice() {
    [ "$(log_count "TFTP: Authentication succeeded")" = 2 ]
}

# memory WHAT [PROCESS]: in kB, of the daemon
memory() {
    awk "/^$1:/ { print \$2 }" "/proc/${2:-$daemon}/smaps_rollup"
}

make_device
mount --bind /flash "$device/app"
mkdir "$device/bin"
cp /bin/busybox "$device/bin/"
chroot "$device" /bin/busybox --install -s /bin
make_start_script
ip link set eth0 name eth1
device_settings
start_daemon
wait_log "DHCPv4 on eth1.100 goes to BOUND"
wait_log "NTP: Use server"
after=$(date "+%F %T")
wait_until "the servers from DHCPv6" file_says "$out/records" "DHCPv6: Set NTP server to"
wait_until "the new settings" credentials_came_twice
sleep 2 # tail looks once a second
end_process "$screen"
check_daemon
device_summary
echo
echo "$(grep -E 'system type|cpu model' /proc/cpuinfo | sed 's/.*: //' | tr '\n' ' ') Linux $(uname -r)"
echo "The daemon's memory: $(memory Rss) kB resident, $(memory Private_Dirty) kB of it written to"
[ ! -e /flash/job/run.sh ] || . /flash/job/run.sh
[ -s "$out/failures" ] || echo "The board is on the network."

# A hostile neighbour on the switch's side.
# shellcheck shell=bash disable=SC2154

# junk SEED COUNT: so many frames of ../hostile.frames to the port, and as many on the voice VLAN. Most of those for the
# DHCPv4 client have the transaction id that dnsmasq has heard last.
junk() {
    local xid
    xid=$(sed -n 's/.*client provides name//; s/.* \([0-9]*\) DHCPACK.*/\1/p' "$out/dnsmasq.log" | tail -n 1)
    xid=$(printf %08x "$xid" | sed 's/../,0x&/g; s/,//')
    cpp -P -D TRUNK hostile.frames | send_frames p1 "$2" "$1"
    cpp -P -D XID="$xid" hostile.frames | send_frames p1.100 "$2" "$1"
}

# scan COUNT OPCODE NAME: begins so many transfers with the TFTP server, each from another port, and never goes on
scan() {
    echo "{ eth(da=$mac, sa=02:ba:d0:00:00:01), ipv4(sa=10.100.0.1, da=$device_address)," \
        "udp(sp=drnd(1024, 65535), dp=69, csum=0), 0, $2, \"$3\", 0, \"octet\", 0 }" | send_frames p1.100 "$1" 1
}

# send_frames INTERFACE COUNT SEED: those that standard input describes
send_frames() {
    (
        cd /run || exit # for its own files
        in_sw trafgen --conf - --dev "$1" --num "$2" --seed "$3" --cpus 1 --gap 300us --no-sock-mem
    ) >>"$out/trafgen.log" 2>&1
}

# What the host part of a scenario is told with: it looks at what the guest left in $out.

# A scenario that has seen enough in the guest needs no part of its own here.
host() {
    :
}

# shark CAPTURE ARGUMENT...: tshark without anybody's preferences
shark() {
    local file="$out/$1.pcap"
    shift
    HOME=$out tshark -n -r "$file" "$@" 2>"$out/tshark.log" ||
        failure "tshark failed on $file: $(tail -n 1 "$out/tshark.log")"
}

# frames CAPTURE FILTER FIELD...: one line a frame, its fields parted by "|"
frames() {
    local capture=$1 filter=$2 field
    shift 2
    for field; do
        set -- "$@" -e "$field"
        shift
    done
    shark "$capture" -Y "$filter" -T fields -E separator='|' "$@"
}

# expect_frames CAPTURE FILTER FIELDS EXPECTED: EXPECTED holds the fields of each frame that differs from all
# before it, "A|B A|C"
expect_frames() {
    # shellcheck disable=SC2086 # a list of words
    expect "$3 of \"$2\" in $1.pcap" "$4" "$(frames "$1" "$2" $3 | awk '!seen[$0]++' | paste -sd ' ')"
}

# first_frame CAPTURE FILTER: its time
first_frame() {
    frames "$1" "$2" frame.time_epoch | head -n 1
}

# ms_between EARLIER LATER: two values of frame.time_epoch
ms_between() {
    awk -v a="$1" -v b="$2" 'BEGIN { printf "%.0f", (b - a) * 1000 }'
}

# What holds for every capture: the frames that the daemon builds itself (TTL 128) have good checksums, and
# nothing that leaves the device is malformed, but for what its kernel quotes of others in an ICMP error.
check_captures() {
    local pcap name
    for pcap in "$out"/*.pcap; do
        [ -e "$pcap" ] || continue
        name=$(basename -s .pcap "$pcap")
        expect "bad frames from the device in $name.pcap" "" "$(
            shark "$name" -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE -Y "eth.src == $mac &&
                (_ws.malformed && !icmpv6 || ip.ttl == 128 && (ip.checksum.status == 0 || udp.checksum.status == 0))"
        )"
    done
}

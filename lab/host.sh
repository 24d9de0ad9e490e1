# What the host part of a scenario is told with: it looks at what the guest left in $out.
# shellcheck shell=sh

# shark CAPTURE ARGUMENT...: tshark without anybody's preferences
shark() {
    shark_file=$out/$1.pcap
    shift
    HOME=$out tshark -n -r "$shark_file" "$@" 2>"$out/tshark.log" ||
        failure "tshark failed on $shark_file: $(tail -n 1 "$out/tshark.log")"
}

# frames CAPTURE FILTER FIELD...: one line a frame, its fields parted by "|"
frames() {
    frames_capture=$1 frames_filter=$2
    shift 2
    for field; do
        set -- "$@" -e "$field"
        shift
    done
    shark "$frames_capture" -Y "$frames_filter" -T fields -E separator='|' "$@"
}

# count_frames CAPTURE FILTER
count_frames() {
    frames "$1" "$2" frame.number | wc -l
}

# ms_between EARLIER LATER: two values of frame.time_epoch
ms_between() {
    awk -v a="$1" -v b="$2" 'BEGIN { printf "%.0f", (b - a) * 1000 }'
}

# What holds for every capture: the frames that the daemon builds itself (TTL 128) have good checksums, and
# nothing that leaves the device is malformed, but for what its kernel quotes of others in an ICMP error.
check_captures() {
    for pcap in "$out"/*.pcap; do
        [ -e "$pcap" ] || continue
        name=$(basename -s .pcap "$pcap")
        expect "bad frames from the device in $name.pcap" "" "$(
            shark "$name" -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE -Y "eth.src == $mac &&
                (_ws.malformed && !icmpv6 || ip.ttl == 128 && (ip.checksum.status == 0 || udp.checksum.status == 0))"
        )"
    done
}

# check_repeats CAPTURE FILTER: copies of one message are 3 or 5 seconds apart, and "secs" tells which
check_repeats() {
    wrong=$(frames "$1" "$2" dhcp.id dhcp.secs frame.time_epoch | awk -F'|' '
        $1 == id { copies++; gap = $3 - time
                   if (!($2 == 3 || $2 == 5) || gap < $2 - 0.05 || gap > $2 + 0.9)
                       print "copy after " gap " s with secs " $2 }
        { id = $1; time = $3 }
        END { if (!copies) print "no copy" }')
    expect "copies of $2 in $1.pcap that are not 3 or 5 s apart" "" "$wrong"
}

# check_pauses CAPTURE FILTER MILLISECONDS...: from one frame to the next
check_pauses() {
    pauses_name="pause in $1.pcap between frames of $2, in milliseconds" copy=1
    pauses=$(frames "$1" "$2" frame.time_epoch |
        awk 'NR > 1 { printf "%.0f\n", ($1 - time) * 1000 } { time = $1 }')
    shift 2
    for pause; do
        expect_between "$pauses_name, number $copy" $((pause - 50)) $((pause + 900)) \
            "$(echo "$pauses" | sed -n ${copy}p)"
        copy=$((copy + 1))
    done
}

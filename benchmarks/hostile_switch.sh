# The switch's part of benchmarks/hostile, behind that of lab/switch.sh: goes on until the guest is ended.
# shellcheck shell=sh disable=SC2154

# The transaction ids that the device may listen for: half of the frames have them.
xids=$(printf %08x000000 "$(sed -n 's/.*client provides name//; s/.* \([0-9]*\) DHCPACK.*/\1/p' "$out/dnsmasq.log" | tail -n 1)")

# Access is for everyone and for good: without it nobody listens half a minute after the start.
# shellcheck disable=SC2086 # a list of words
settings_text ${own%false}true http_password=changed log10=7 >/run/tftp/new
tftp_put curl "$device_address" new settings.xml
credentials admin changed

round=0
while :; do
    round=$((round + 1))
    in_sw python3 garbage.py $round 4000 p1 p1.100 "$xids" >/dev/null
    echo "round $round"
    for scan in "300 guess auth.txt" "700 write note" "700 read settings.xml"; do
        # shellcheck disable=SC2086 # a list of words
        echo "$scan: $(in_sw python3 tftp_scanner.py "$device_address" $scan)"
    done
done >"$out/rounds" 2>&1

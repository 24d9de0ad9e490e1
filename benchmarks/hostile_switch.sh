# The switch's part of benchmarks/hostile, behind that of lab/switch.sh: goes on until the guest is ended.
# shellcheck shell=sh disable=SC2154

# Access is for everyone and for good: without it nobody listens half a minute after the start.
# shellcheck disable=SC2086 # a list of words
settings_text ${own%false}true http_password=changed log10=7 >/run/tftp/new
tftp_put curl "$device_address" new settings.xml
credentials admin changed

round=0
while :; do
    round=$((round + 1))
    junk $round 2000
    echo "round $round"
    credentials admin $round
    for request in "2 auth.txt" "2 note" "1 settings.xml"; do
        # shellcheck disable=SC2086 # two words
        scan 600 $request
    done
done >"$out/rounds" 2>&1

# The board's part of benchmarks/hostile: prints the seconds gone by, the daemon's memory and how many descriptors it
# has open, every five seconds.
# shellcheck shell=dash disable=SC2154

end=$(cat /flash/job/seconds) gone=0
until [ "$gone" -gt "$end" ]; do
    : >"$out/records" # which would fill the board's memory
    : >"$out/records.raw"
    echo "result $gone $(memory Rss) $(memory Private_Dirty) $(find "/proc/$daemon/fd" -type l | wc -l)"
    sleep 5
    gone=$((gone + 5))
done
check_daemon
has_address eth1.100 || failure "the lease was lost"

# The board's part of benchmarks/footprint: the daemon and the bare program take turns on a real kernel, which counts
# the processor time of each in nanoseconds. Prints what guest part writes to its results.
# shellcheck shell=dash disable=SC2154

/job/link_poller "$device/proc/avalanche/cpmac_link" &
poller=$!
sleep 35 # until access is off
daemon_begin=$(cut -d ' ' -f 1 "/proc/$daemon/schedstat")
poller_begin=$(cut -d ' ' -f 1 "/proc/$poller/schedstat")
sleep "$(cat /job/seconds)"
echo "result mipsel cpu $(($(cut -d ' ' -f 1 "/proc/$daemon/schedstat") - daemon_begin))"
echo "result mipsel-poller cpu $(($(cut -d ' ' -f 1 "/proc/$poller/schedstat") - poller_begin))"
echo "result mipsel rss $(memory_kb)"

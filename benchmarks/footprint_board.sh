# The board's part of benchmarks/footprint: the daemon and the bare program take turns on a real kernel, which counts
# the processor time of each in nanoseconds, and their calls. Prints what the guest part writes to its results.
# shellcheck shell=dash disable=SC2154

job=/flash/job
seconds=$(cat $job/seconds)
build=$(cat $job/build)
$job/link_poller "$device/proc/avalanche/cpmac_link" &
poller=$!

cpu_time() {
    cut -d ' ' -f 1 "/proc/$1/schedstat"
}

# result CANDIDATE PROCESS CPU: with the calls in the trace, and the memory
result() {
    echo "result $1 cpu $3"
    echo "result $1 system-calls $(grep -c -- "-$2 .*sys_enter" $tracing/trace)"
    echo "result $1 rss $(memory Rss "$2")"
    echo "result $1 pss $(memory Pss "$2")"
    echo "result $1 private $(($(memory Private_Clean "$2") + $(memory Private_Dirty "$2")))"
    echo "result $1 private-dirty $(memory Private_Dirty "$2")"
}

sleep 35 # until access is off
daemon_begin=$(cpu_time "$daemon") poller_begin=$(cpu_time $poller)
sleep "$seconds"
daemon_cpu=$(($(cpu_time "$daemon") - daemon_begin)) poller_cpu=$(($(cpu_time $poller) - poller_begin))

# In another such time, since counting costs time.
tracing=/sys/kernel/tracing calls=$tracing/events/raw_syscalls/sys_enter
mount -t tracefs tracing $tracing
echo "common_pid == $daemon || common_pid == $poller" >$calls/filter
echo 1 >$calls/enable
sleep "$seconds"
echo 0 >$calls/enable

result "$build" "$daemon" "$daemon_cpu"
result "$build-poller" $poller "$poller_cpu"

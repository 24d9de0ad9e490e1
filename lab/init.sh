#!/bin/sh
# First process of the guest. It must never exit: the kernel would panic.
#
# Until the guest has its own /proc, that folder is the machine's below it: mount first, end if that fails.
tools="$LAB/../build/chrony/usr"
export PATH="/usr/sbin:/usr/bin:/sbin:/bin:$tools/sbin:$tools/bin" LC_ALL=C TZ=UTC HOME=/run TMPDIR=/run
mount -t proc proc /proc || exit 9
mount -t sysfs sys /sys
mount -t tmpfs tmp /run
mkdir -p /run/netns /run/lab /run/out
mount -t hostfs -o "ro,$LAB" lab /run/lab
mount -t hostfs -o "$OUT" out /run/out # the one folder of the machine that can be written

if [ "$CONSOLE" ]; then
    echo 1 >/proc/sys/kernel/printk # The terminal is the user's, not the kernel's.
    # A session of its own with the console as its terminal, so that Ctrl-C reaches the shell's commands.
    setsid -c sh /run/lab/case.sh </dev/tty0 >/dev/tty0 2>&1
else
    (sleep "$LIMIT"; echo 124 >/run/out/status; echo o >/proc/sysrq-trigger) &
    setsid sh /run/lab/case.sh </dev/null >>/run/out/log 2>&1
fi
status=$?
[ -s /run/out/status ] || echo $status >/run/out/status
sync
echo o >/proc/sysrq-trigger
sleep 10

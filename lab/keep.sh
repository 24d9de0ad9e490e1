# The shell that ./run --keep ends with: what it says first, and its commands.
. /run/lab/expect.sh
. /run/lab/guest.sh

# Here a mistake is told and nothing else: the run itself has succeeded.
die() {
    echo "$*" >&2
    return 1
}
failure() {
    die "$@"
}

mkdir -p /run/tools
ln -sf "$out/bin/basenetlog" "$out/bin/basenetcheck" /run/tools/
PATH=/run/tools:$PATH

# The management host's, on the other side of the wire.
curl() {
    in_sw curl "$@"
}

runs() {
    busybox pidof basenetd >/dev/null
}

gone() {
    ! runs
}

stop() {
    gone || { busybox killall basenetd && wait_until "the daemon to end" gone; }
}

start() {
    runs && { echo "The daemon runs already." >&2; return 1; }
    (
        daemon=
        unshare --root="$device" --wd=/nv/app /app/basenetd "$@" </dev/null >>"$out/daemon.out" 2>&1 &
    )
    sleep 0.5
    runs || die "The daemon has ended at once: does it know the options \"$*\"?"
}

restart() {
    stop && start "$@"
}

cat <<END

This is a shell in the device's own network. The daemon's working directory is this folder, $app.

    restart, stop, start      the daemon; options may follow, as in: restart --pipe PIPE
    basenetlog --create PIPE &      shows the records of a pipe in this folder; those of net2app are taken already
    basenetlog --status $out/records.raw      what the records say so far
    tail -f $out/records      the records as they come (Ctrl-C ends it)
    basenetcheck settings.xml
    curl -T FILE tftp://$(address_of eth1.100 | cut -d / -f 1)/NAME      from the management host, on the VLAN
    link_file DOWN, link_file UP      what the Ethernet driver says of the link
    ip netns exec sw COMMAND      on the switch's side, where the servers are
    busybox killall dnsmasq      ends one of them

Files can be written here, in $out, which this machine keeps, and in /run, which ends with the shell.
Leave with exit.

END

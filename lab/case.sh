# Runs the guest part of a scenario: a network, a device, then the scenario's own story.
cd /run/lab || exit 9
. ./expect.sh
. ./guest.sh
for server in servers/*.sh; do
    . "./$server"
done
. "./$SCENARIO"

# A restart of the device is one of the guest, which begins here once more: only a scenario that wants it has
# more than one life.
life=$(($(cat "$out/life" 2>/dev/null || echo 0) + 1))
echo $life >"$out/life"
[ $life -le "${lives:-1}" ] || die "the daemon restarted the device"

trap check_daemon EXIT
make_network
make_device
guest

# The network of the emulated board: the switch and the servers of ./run, at the end of a wire out of the guest.
. ./demo.sh

make_wire() {
    ip link set vec0 netns sw name p1
}

guest() {
    start_servers
    echo ready >"$out/ready"
    wait_until "the board to ask for 802.1X" file_says "$out/hostapd.log" EAP-STARTED
    wait_until "the board to ask for an address" file_says "$out/dnsmasq.log" DHCPACK
    device_address=$(sed -n 's/.*DHCPACK([^)]*) \([^ ]*\) .*/\1/p' "$out/dnsmasq.log")
    wait_until "the address at the switch" switch_knows "$device_address"
    provision
    lldp_neighbour | grep -E 'mgmt-ip|policy\.(vlan|pcp|dscp)' >"$out/heard"
    # shellcheck disable=SC1091
    [ ! -e "$out/switch.sh" ] || . "$out/switch.sh"
    sleep 3600 # The guest is ended when the board has.
}

# lldpd, the switch's LLDP agent (a network connectivity device).

# start_lldpd POLICY...: with these LLDP-MED policies, each written as
# "voice tagged vlan 100 priority voice dscp 46"
start_lldpd() {
    local policy
    mkdir -p /run/lldpd
    echo "configure lldp tx-interval ${lldp_interval:-30}" >/run/lldpd.conf
    serve lldpd "lldpd should resume operations" \
        lldpd -d -M "${lldp_class:-4}" -I p1 -C p1 -O /run/lldpd.conf -u /run/lldpd.sock -S switch
    # A policy for a port that lldpd has not found yet would be lost, silently.
    wait_until "lldpd to find its port" lldpd_has_port
    for policy; do
        # shellcheck disable=SC2086 # a list of words
        lldp configure ports p1 med policy application $policy >>"$out/lldpcli.log" 2>&1 ||
            die "lldpd refused the policy $policy"
    done
}

# The switch has the voice VLAN 100, and names it every second.
make_voice_vlan() {
    switch_vlan 100
    lldp_interval=1
    start_lldpd "voice tagged vlan 100 priority voice dscp 46"
}

lldp() {
    in_sw lldpcli -u /run/lldpd.sock "$@"
}

lldpd_has_port() {
    lldp -f keyvalue show interfaces | grep -q "^lldp\.p1\."
}

# What the switch has read from the device, one "name=value" a line. As the chassis id changes with the
# address, the device is several neighbours to the switch: the last one counts.
lldp_neighbour() {
    lldp -f keyvalue show neighbors details | awk '
        /\.via=/ { text = "" }
        { sub(/^lldp\.p1\./, ""); text = text $0 "\n" }
        END { printf "%s", text }'
}

# switch_knows ADDRESS: the device has announced that management address
switch_knows() {
    lldp_neighbour | grep -q "^chassis.mgmt-ip=$1\$"
}

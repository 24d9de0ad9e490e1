# The time: from a server that DHCP gives as an address, asked until it answers, or that the settings name. DNS
# servers with manners of their own tell its address, or that there is none; without any the neighbours are asked.

guest() {
    local address
    make_voice_vlan
    ip -n sw addr add 10.100.0.53/24 dev p1.100
    ip addr add 2001:db8:1::9/64 dev eth1 nodad
    start_dnsmasq p1.100 dhcp-range=10.100.0.9,10.100.0.9,255.255.255.0,1h dhcp-option=42,10.100.0.1
    begin_case retries
    wait_until "a second request" captured retries "vlan and dst 10.100.0.1 and udp dst port 123" 2
    start_chrony "Jan 1, 2030 00:00:00"
    wait_log "NTP: Use server 10.100.0.1"
    wait_until "the clock" clock_in 2030
    set -- "six AAAA 2001:db8:1::1" "four A 10.100.0.1" "alias CNAME second" "second CNAME four"
    start_unbound 10.100.0.1 "$@"
    start_dnsmasq_dns 10.100.0.53 "$@"
    # Nobody is at the first address: the second one is asked then.
    asks_for six 10.100.0.52 10.100.0.1 "NTP: Use server six.voice.example"
    for address in 10.100.0.1 10.100.0.53; do
        asks_for alias $address $address "NTP: Use server alias.voice.example"
        asks_for missing $address $address "NTP: DNS resolution for missing.voice.example failed"
    done
    asks_for nobody "" "" "DNS: Request AAAA nobody.voice.example"

    # Beyond 2038 the daemon's own time goes on.
    start_chrony "Jan 1, 2040 00:00:00" 1123
    begin_case port ntp_server=10.100.0.1:1123 dhcp=false ip_adr=10.100.0.9 netmask=255.255.255.0
    wait_log "NTP: Use server 10.100.0.1:1123"
    wait_until "the clock" clock_in 2040
    link_goes DOWN
}

# asks_for NAME DNS_SERVER DNS_SERVER END: until the device logs the end
asks_for() {
    begin_case "$1-$3" "ntp_server=$1.voice.example" "dns_server1=$2" "dns_server2=$3" dhcp=false ip_adr=10.100.0.9 \
        netmask=255.255.255.0 gateway=10.100.0.1
    wait_log "$4"
    [ "$1" != nobody ] || wait_until "a question to the neighbours" captured "$1-" "vlan and dst host ff02::1:3" 1
}

host() {
    local own="eth.src == $mac && !icmp"
    expect_frames six-10.100.0.1 "$own && (dns || ntp)" "ip.dst ipv6.dst dns.qry.name" \
        "10.100.0.1||six.voice.example |2001:db8:1::1|"
    # An answer of unbound holds one link of the chain, one of dnsmasq all of it.
    expect_frames alias-10.100.0.1 "$own && dns" dns.qry.name \
        "alias.voice.example second.voice.example four.voice.example"
    expect_frames alias-10.100.0.53 "$own && dns" dns.qry.name "alias.voice.example four.voice.example"
    expect_frames nobody- "$own && ip.dst == 224.0.0.252 && udp.dstport == 5355" dns.qry.name nobody.voice.example
}

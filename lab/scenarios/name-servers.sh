# Which DNS server is asked: without any, the neighbours; the one that answered, for as long as it answers;
# then all of them again.
# shellcheck shell=sh

guest() {
    ip -n sw addr add 10.1.0.51/24 dev p1
    ip -n sw addr add 10.1.0.53/24 dev p1
    start_chrony "Jan 1, 2030 00:00:00"

    capture nobody
    with
    wait_log "DNS: Request AAAA time.voice.example"
    wait_until "the second copy of the question" captured nobody "dst 224.0.0.252 and udp dst port 5355" 3
    stop_daemon
    end_capture nobody
    clean_network

    # Nobody is at the first address. The second server tells the alias, then nothing more.
    start_unbound 10.1.0.53 "time CNAME clock" "clock SILENCE"
    capture silence
    with dns_server1=10.1.0.51 dns_server2=10.1.0.53
    wait_log "DNS: Request AAAA time.voice.example"
    wait_log "DNS: Request AAAA clock.voice.example"
    wait_until "the question" captured silence "dst 10.1.0.53 and udp dst port 53" 2
    start_dnsmasq_dns 10.1.0.51 "clock A 10.1.0.1"
    wait_log "NTP: Use server time.voice.example"
}

with() {
    settings dhcp=false ip_adr=10.1.0.9 netmask=255.255.255.0 gateway=10.1.0.1 ntp_server=time.voice.example "$@"
    start_daemon
}

host() {
    expect "questions without a server" "$(
        for copy in 1 2 3; do
            echo "ff02::1:3|5355|28|time.voice.example"
            echo "224.0.0.252|5355|28|time.voice.example"
        done)" "$(frames nobody "udp.dstport == 5355 && eth.src == $mac" ip.dst ipv6.dst udp.dstport \
            dns.qry.type dns.qry.name | sed 's/^|//; s/||/|/' | head -n 6)"
    expect "questions to servers" "10.1.0.51 28 time
10.1.0.53 28 time
10.1.0.53 28 clock
10.1.0.53 28 clock
10.1.0.53 28 clock
10.1.0.53 28 clock
10.1.0.53 28 clock
10.1.0.51 28 clock
10.1.0.53 28 clock
10.1.0.51 1 clock" "$(frames silence "dns && eth.src == $mac" ip.dst dns.qry.type dns.qry.name |
        sed 's/\.voice\.example$//; s/|/ /g')"
    check_pauses nobody "ip.dst == 224.0.0.252 && udp.dstport == 5355" 500 1000
    check_pauses silence "dns.qry.name == clock.voice.example && dns.qry.type == 28 && ip.dst == 10.1.0.53" \
        500 1000 2000 4000 4000
}

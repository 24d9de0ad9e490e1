# The settings name the time server. Two DNS servers with manners of their own tell its address, or that there
# is none.
# shellcheck shell=sh

guest() {
    ip -n sw addr add 10.1.0.53/24 dev p1
    ip -n sw addr add 10.1.0.123/24 dev p1
    ip -n sw addr add 2001:db8:1::123/64 dev p1
    ip addr add 2001:db8:1::9/64 dev eth1 nodad
    start_chrony "Jan 1, 2030 00:00:00"
    with unbound
    with dnsmasq_dns
}

with() {
    "start_$1" 10.1.0.53 "six AAAA 2001:db8:1::123" "six A 10.1.0.66" "four A 10.1.0.123" \
        "alias CNAME second" "second CNAME third" "third CNAME four"
    capture "$1"
    asks_for six "NTP: Use server six.voice.example"
    asks_for four "NTP: Use server four.voice.example"
    asks_for alias "NTP: Use server alias.voice.example"
    asks_for missing "NTP: DNS resolution for missing.voice.example failed"
    end_capture "$1"
    stop_server "$(echo "$1" | tr _ -)"
}

# asks_for NAME END: a fresh device with that time server, until the log tells the end
asks_for() {
    settings dhcp=false ip_adr=10.1.0.9 netmask=255.255.255.0 dns_server1=10.1.0.53 \
        "ntp_server=$1.voice.example"
    start_daemon
    wait_log "NTP: Trying to resolve $1.voice.example"
    wait_log "$2"
    stop_daemon
    clean_network
}

host() {
    for server in unbound dnsmasq_dns; do
        if [ $server = unbound ]; then
            links="AAAA second, AAAA third, " # an answer holds one link of the chain
        else
            links= # the whole chain
        fi
        expect "questions to $server" \
            "AAAA six, AAAA four, A four, AAAA alias, ${links}AAAA four, A four, AAAA missing, A missing" \
            "$(frames $server "dns && eth.src == $mac" dns.qry.type dns.qry.name | uniq |
                sed 's/^28|/AAAA /; s/^1|/A /; s/\.voice\.example$//' | paste -sd , | sed 's/,/, /g')"
        expect "destinations of NTP requests with $server" "2001:db8:1::123 10.1.0.123 10.1.0.123" \
            "$(frames $server "ntp && eth.src == $mac" ip.dst ipv6.dst | tr -d '|' | paste -sd ' ')"
    done
}

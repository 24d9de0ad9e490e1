# unbound as DNS server of the zone voice.example. Its SOA, in negative answers, has a refresh of 1200 s and a
# minimum of 25 s. An alias is answered alone, without what it leads to; other zones get SERVFAIL.

# start_unbound ADDRESSES RECORD...: on those addresses, with these records, each as "time A 10.1.0.5". A question
# about a name with the record "time SILENCE" is read and never answered.
start_unbound() {
    local addresses=$1 address
    shift
    {
        # It asks nobody: without a list of outgoing ports it starts a second sooner.
        cat <<END
remote-control:
  control-enable: no
server:
  username: ""
  chroot: ""
  directory: "/run"
  pidfile: ""
  use-syslog: no
  log-queries: yes
  module-config: "iterator"
  outgoing-port-avoid: "1024-65000"
$(for address in $addresses; do echo "  interface: $address"; done)
  access-control: 0.0.0.0/0 allow
  access-control: ::/0 allow
  local-zone: "voice.example." static
  local-data: "voice.example. 60 IN SOA ns.voice.example. root.voice.example. 1 1200 180 1209600 25"
END
        printf '%s\n' "$@" | sed -E \
            -e 's/^(.*) SILENCE$/  local-zone: "\1.voice.example." deny/' \
            -e 's/^(.*) CNAME (.*)$/  local-data: "\1.voice.example. 60 IN CNAME \2.voice.example."/' \
            -e 's/^(.*) (A+) (.*)$/  local-data: "\1.voice.example. 60 IN \2 \3"/'
    } >/run/unbound.conf
    serve unbound "start of service" unbound -d -c /run/unbound.conf
}

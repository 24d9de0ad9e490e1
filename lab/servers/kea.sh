# Kea as DHCP server.
# shellcheck shell=sh

# start_kea INTERFACE SUBNET POOL OPTION...: SUBNET as "10.1.0", POOL as "10.1.0.7-10.1.0.7"; each OPTION as
# "name=value", sent whether asked for or not
start_kea() {
    mkdir -p /run/kea
    interface=$1 net=$2 pool=$3 options=
    shift 3
    for option; do
        options="$options{\"name\":\"${option%%=*}\",\"data\":\"${option#*=}\",\"always-send\":true},"
    done
    cat >/run/kea.conf <<END
{"Dhcp4": {
  "interfaces-config": {"interfaces": ["$interface"], "dhcp-socket-type": "raw"},
  "lease-database": {"type": "memfile", "persist": false},
  "valid-lifetime": 600, "renew-timer": 200, "rebind-timer": 400,
  "option-data": [${options%,}],
  "subnet4": [{"subnet": "$net.0/24", "pools": [{"pool": "$pool"}]}],
  "loggers": [{"name": "kea-dhcp4", "severity": "INFO", "output_options": [{"output": "stdout"}]}]
}}
END
    serve kea "DHCP4_STARTED" \
        env KEA_PIDFILE_DIR=/run/kea KEA_LOCKFILE_DIR=/run/kea kea-dhcp4 -c /run/kea.conf
}

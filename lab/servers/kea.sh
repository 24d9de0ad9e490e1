# Kea as DHCP or DHCPv6 server.

# start_kea FAMILY INTERFACE SUBNET POOL OPTION...: FAMILY is 4 or 6, SUBNET as "10.1.0.0/24", POOL as
# "10.1.0.7-10.1.0.7"; each OPTION as "name=value", sent whether asked for or not. kea_renew and kea_rebind may
# name other timers, in seconds.
start_kea() {
    local family=$1 interface=$2 subnet=$3 pool=$4 identity='' options='' option
    mkdir -p /run/kea
    shift 4
    [ "$family" = 4 ] || identity='"server-id": {"type": "LL", "persist": false},'
    for option; do
        options="$options{\"name\":\"${option%%=*}\",\"data\":\"${option#*=}\",\"always-send\":true},"
    done
    cat >/run/kea.conf <<END
{"Dhcp$family": { $identity
  "interfaces-config": {"interfaces": ["$interface"]},
  "lease-database": {"type": "memfile", "persist": false},
  "valid-lifetime": 600, "renew-timer": ${kea_renew:-200}, "rebind-timer": ${kea_rebind:-400},
  "option-data": [${options%,}],
  "subnet$family": [{"subnet": "$subnet", "interface": "$interface", "pools": [{"pool": "$pool"}]}],
  "loggers": [{"name": "kea-dhcp$family", "severity": "INFO", "output_options": [{"output": "stdout"}]}]
}}
END
    serve kea "DHCP${family}_STARTED" \
        env KEA_PIDFILE_DIR=/run/kea KEA_LOCKFILE_DIR=/run/kea "kea-dhcp$family" -c /run/kea.conf
}

# hostapd as the authenticator of the switch port.

# start_hostapd METHODS LINE...: takes the user "base7" with the word "secret" by these EAP methods, the first
# one first; each LINE goes into the configuration
start_hostapd() {
    echo "\"base7\" $1 \"secret\"" >/run/eap_user
    shift
    printf '%s\n' interface=p1 driver=wired ieee8021x=1 eap_server=1 eap_user_file=/run/eap_user \
        eapol_version=1 "$@" >/run/hostapd.conf
    serve hostapd AP-ENABLED hostapd /run/hostapd.conf
}

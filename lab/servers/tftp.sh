# TFTP clients, on the switch's side of the wire, in the folder /run/tftp.

tftp_clients="curl tftp atftp busybox"
device_address=10.1.0.77 # where `upload` goes

# tftp_get CLIENT HOST NAME [FILE]: fetches a file into /run/tftp/FILE, "got"; fails as the client does. An IPv6
# HOST stands in no brackets.
tftp_get() {
    local got=${4:-got}
    mkdir -p /run/tftp
    rm -f "/run/tftp/$got"
    case $1 in
    curl) in_tftp curl -s -g -o "$got" "tftp://$(tftp_url_host "$2")/$3" ;;
    tftp) in_tftp tftp -m octet "$2" -c get "$3" "$got" ;; # ends with 0 whatever comes
    atftp) in_tftp atftp -g -r "$3" -l "$got" "$2" ;;
    busybox) in_tftp busybox tftp -g -r "$3" -l "$got" "$2" ;;
    esac >>"$out/tftp.log" 2>&1
}

# tftp_put CLIENT HOST FILE NAME: sends a file of /run/tftp
tftp_put() {
    case $1 in
    curl) in_tftp curl -s -g -T "$3" "tftp://$(tftp_url_host "$2")/$4" ;;
    tftp) in_tftp tftp -m octet "$2" -c put "$3" "$4" ;;
    atftp) in_tftp atftp -p -l "$3" -r "$4" "$2" ;;
    busybox) in_tftp busybox tftp -p -l "$3" -r "$4" "$2" ;;
    esac >>"$out/tftp.log" 2>&1
}

in_tftp() {
    in_sw timeout -k 1 200 env -C /run/tftp "$@"
}

# In a URL an IPv6 address stands in brackets and "%" before its interface is written out (RFC 6874).
tftp_url_host() {
    case $1 in
    *:*) echo "[$(echo "$1" | sed 's/%/%25/')]" ;;
    *) echo "$1" ;;
    esac
}

# upload NAME LINE...: a text file, by curl
upload() {
    local name=$1
    shift
    mkdir -p /run/tftp
    printf '%s\n' "$@" >/run/tftp/upload
    tftp_put curl "$device_address" upload "$name"
}

credentials() {
    upload auth.txt "username:$1" "password:$2"
}

# random_file FILE BYTES
random_file() {
    mkdir -p /run/tftp
    head -c "$2" /dev/urandom >"/run/tftp/$1"
}

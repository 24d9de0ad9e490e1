# The Debian packages of the lab. Sourced by lab/test and run.
# shellcheck disable=SC2034

build_packages="g++ make cmake"
demo_packages="user-mode-linux busybox-static iproute2 util-linux lldpd dnsmasq-base kea-dhcp6-server unbound
    hostapd curl tcpdump"
chrony_libraries="libcap2 libedit2 libgnutls30 libnettle8 libseccomp2"
test_packages="$demo_packages isc-dhcp-server kea-dhcp4-server tftp-hpa atftp tshark netsniff-ng python3 procps"

# missing_packages NAME...: prints those that are not installed.
missing_packages() {
    local package
    for package; do
        case $(dpkg-query -W -f '${Status}' "$package" 2>/dev/null) in
        *" installed") ;;
        *) echo "$package" ;;
        esac
    done
}

may_run_lldpcli() {
    [ -x /usr/sbin/lldpcli ] && return
    echo "Only root and members of the group adm can run lldpcli, which the lab needs." >&2
    return 1
}

# need_packages NAME...: installs what is missing. Where it may not, says what to do and fails.
need_packages() {
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        echo "This needs Debian 12 (apt-get was not found) with these packages: $*" >&2
        return 1
    fi
    local missing
    missing=$(missing_packages "$@" | tr '\n' ' ')
    if [ -z "$missing" ]; then
        case " $* " in
        *" lldpd "*) may_run_lldpcli ;;
        esac
        return
    fi
    if [ "$(id -u)" != 0 ]; then
        echo "Missing packages: $missing" >&2
        echo "As root: apt-get install --no-install-recommends $missing" >&2
        return 1
    fi
    echo "Installing $missing" >&2
    install_quietly "$missing" || { echo "apt-get failed." >&2; return 1; }
}

# need_unpacked PACKAGE FOLDER PROGRAM: the guest finds the package in FOLDER. For servers that would conflict
# with the machine's own, or start on it.
need_unpacked() {
    [ -x "$2/$3" ] && return 0
    mkdir -p "$2" && (
        cd "$2" && { apt-get -qq download "$1" || { apt-get -qq update && apt-get -qq download "$1"; }; } &&
            dpkg -x "$1"_*.deb . && rm "$1"_*.deb
    ) 2>/dev/null && return 0
    echo "The package $1 could not be fetched." >&2
    return 1
}

# need_chrony FOLDER: chrony conflicts with every other time service.
need_chrony() {
    # shellcheck disable=SC2086 # a list of words
    need_packages $chrony_libraries && need_unpacked chrony "$1" usr/sbin/chronyd
}

# need_foreign ARCHITECTURE FOLDER NAME...: the newest package of each NAME, a pattern, for another architecture
# is unpacked in FOLDER/root. The machine's own lists of packages stay as they are: these come from the same
# mirror into lists of their own.
need_foreign() {
    (
        local architecture=$1 name package
        mkdir -p "$2/lists/partial" "$2/root" && cd "$2" || exit
        [ ! -e complete ] || exit 0
        shift 2
        # shellcheck disable=SC2016 # names of apt's
        apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
            "Created-By: Packages" "Origin: Debian" | sort -u >sources.list
        printf '%s;\n' "APT::Architecture \"$architecture\"" "APT::Architectures {\"$architecture\"}" \
            "Dir::Etc::SourceList \"$PWD/sources.list\"" 'Dir::Etc::SourceParts "-"' \
            "Dir::State::Lists \"$PWD/lists\"" "Dir::Cache \"$PWD\"" 'Dir::State::Status "/dev/null"' \
            'APT::Sandbox::User ""' >apt.conf
        export APT_CONFIG=apt.conf
        apt-get -qq update || echo "Some lists for $architecture could not be fetched." >&2
        for name; do
            package=$(apt-cache pkgnames | grep -xE "$name" | sort -V | tail -n 1)
            apt-get -qq download "${package:-$name}" && dpkg -x "$package"_*.deb root || exit 1
        done >fetch.log 2>&1
        rm ./*.deb && touch complete
    ) && return
    echo "Packages for $1 could not be fetched; see $2/fetch.log. It may help to run apt-get update as root." >&2
    return 1
}

# The servers serve inside the guest only: none of them may start on this machine, now or at its next boot.
install_quietly() {
    local policy=/usr/sbin/policy-rc.d installed service
    if [ -e $policy ]; then
        policy= # the machine has a rule of its own
    else
        trap 'rm -f "$policy"; exit 1' INT TERM
        printf '#!/bin/sh\nexit 101\n' >$policy && chmod 755 $policy
    fi
    # shellcheck disable=SC2086 # a list of words
    apt-get -qq update && DEBIAN_FRONTEND=noninteractive \
        apt-get -qq install --no-install-recommends --no-remove $1 >/dev/null </dev/null
    installed=$?
    [ -z "$policy" ] || rm -f "$policy"
    trap - INT TERM
    for service in lldpd unbound isc-dhcp-server kea-dhcp4-server kea-dhcp6-server hostapd; do
        case " $1" in
        *" $service "*) systemctl disable $service >/dev/null 2>&1 ;;
        esac
    done
    return $installed
}

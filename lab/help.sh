# Sourced by scripts before they do anything: "--help" shows the comment that the script begins with, and ends it.
# shellcheck shell=sh
if [ "$*" = --help ]; then
    sed -n '2,/^$/s/^# \{0,1\}//p' "$0"
    exit 0
fi

# refuse WORD...: what is not understood; nothing has been done yet
refuse() {
    echo "$0 does not know \"$*\"; --help tells what it takes." >&2
    exit 2
}

# is_count TEXT: a whole number above 0
is_count() {
    case $1 in
    '' | 0* | *[!0-9]*) return 1 ;;
    esac
}

# with_progress LOG COMMAND...: its output goes to LOG, of which the newest line shows every ten seconds unless $quiet
with_progress() {
    progress_log=$1
    shift
    # An interrupt does not reach what runs in the background: it ends with this script.
    while sleep 10 >/dev/null 2>&1 && kill -0 $$ 2>/dev/null; do
        [ "$quiet" ] || echo "      $(tail -n 1 "$progress_log" | cut -c -100)" >&2
    done &
    progress=$!
    "$@" >"$progress_log" 2>&1
    progress_status=$?
    kill $progress 2>/dev/null
    wait $progress 2>/dev/null
    return $progress_status
}

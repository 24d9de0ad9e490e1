# Checks, for the guest part and the host part of a scenario. Each failed check leaves one line in
# $out/failures; the scenario goes on, so that one run shows all that is wrong.

mac=02:a0:b7:1a:2b:3c # of the device

failure() {
    echo "$*" >>"${out:?}/failures"
}

# A measured value, shown below the scenario's line.
note() {
    echo "$*" >>"${out:?}/notes"
}

# expect WHAT EXPECTED SEEN
expect() {
    [ "$2" = "$3" ] || failure "$1: expected \"$2\", saw \"$3\""
}

# expect_between WHAT LEAST MOST SEEN: whole numbers
expect_between() {
    if [ -z "$4" ] || [ "$4" -lt "$2" ] || [ "$4" -gt "$3" ]; then
        failure "$1: expected $2 to $3, saw \"$4\""
    fi
}

# expect_file FILE CONTENT: to the last byte; a newline is written "\n"
expect_file() {
    expect "$1" "$(printf '%b.' "$2")" "$(cat "$out/nv/app/$1" && echo .)"
}

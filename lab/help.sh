# Sourced by scripts before they do anything: "--help" shows the comment that the script begins with, and ends it.
# shellcheck shell=sh
if [ "$*" = --help ]; then
    sed -n '2,/^$/s/^# \{0,1\}//p' "$0"
    exit 0
fi

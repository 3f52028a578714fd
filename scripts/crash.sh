#!/usr/bin/env bash
# Kills the master, another channel's process and zce-board at N (200 unless given) random moments
# of a session on an accelerated clock, starts them anew, and compares what they subscribe and
# receive. Prints one line; what went wrong, with the seed, if something did.
# Usage: scripts/crash.sh [N] [--seed S]
source "$(dirname "$0")/common.sh"

kills=200
if [[ ${1:-} =~ ^[0-9]+$ ]]; then
    kills=$1
    shift
fi
need "${BUILD_PACKAGES[@]}" faketime
build release zce-board zce-recv >"/tmp/velazce-crash-$$.log" 2>&1 || {
    cat "/tmp/velazce-crash-$$.log"
    rm -f "/tmp/velazce-crash-$$.log"
    exit 1
}
rm -f "/tmp/velazce-crash-$$.log"
exec python3 -B tests/system/crash.py "$kills" --programs build/release/bin "$@"

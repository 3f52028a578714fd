#!/usr/bin/env bash
# Two boards with 16 receivers each, for MINUTES (10 unless given): faults come and go, receivers are
# restarted, the day changes under an accelerated clock. Prints one line with what was sent, delivered
# and dropped; what went wrong, with the seed, if something did.
# Usage: scripts/soak.sh [MINUTES] [--seed S]
source "$(dirname "$0")/common.sh"

minutes=10
if [[ ${1:-} =~ ^[0-9.]+$ ]]; then
    minutes=$1
    shift
fi
need "${BUILD_PACKAGES[@]}" faketime
build release zce-board zce-recv >"/tmp/velazce-soak-$$.log" 2>&1 || {
    cat "/tmp/velazce-soak-$$.log"
    rm -f "/tmp/velazce-soak-$$.log"
    exit 1
}
rm -f "/tmp/velazce-soak-$$.log"
exec python3 -B tests/system/soak.py "$minutes" --programs build/release/bin "$@"

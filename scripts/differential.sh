#!/usr/bin/env bash
# The library against a second implementation of its decisions, in Python: N random cases (10000
# unless given) of each kind to both. Prints the smallest case that they disagree on, with the seed.
# Usage: scripts/differential.sh [N] [--seed S] [--kind selection|map|cache|start] [--only NUMBER]
source "$(dirname "$0")/common.sh"

cases=10000
if [[ ${1:-} =~ ^[0-9]+$ ]]; then
    cases=$1
    shift
fi
need "${BUILD_PACKAGES[@]}"
build release differ >"/tmp/velazce-differential-$$.log" 2>&1 || {
    cat "/tmp/velazce-differential-$$.log"
    rm -f "/tmp/velazce-differential-$$.log"
    exit 1
}
rm -f "/tmp/velazce-differential-$$.log"
exec python3 -B tests/differential/run.py --differ build/release/bin/differ --cases "$cases" "$@"

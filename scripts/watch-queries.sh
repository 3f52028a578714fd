#!/usr/bin/env bash
# watch-queries.sh FILE: runs every query of the dashboard in examples/monitoring by promtool, on a
# Prometheus of its own (Debian's; a free port, a temporary directory) that reads FILE, which
# zce-watch export has written. A line for each query, with the series it gives; fails if Prometheus
# refuses a query, a rule or the file, and if one of the queries gives nothing (but those whose panel
# tells what it shows then).
#
#     ZCE_DEMO_WATCH=/tmp/watched ./scripts/demo.sh
#     ./scripts/watch-queries.sh /tmp/watched/zce.prom
if [ $# -ne 1 ] || [ "${1#-}" != "$1" ]; then
    echo "usage: ./scripts/watch-queries.sh FILE" >&2
    exit 2
fi
file=$(realpath -- "$1")
source "$(dirname "$0")/common.sh"
need prometheus python3
exec python3 -B scripts/watch/queries.py examples/monitoring "$file"

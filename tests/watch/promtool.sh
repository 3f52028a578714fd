#!/usr/bin/env bash
# promtool.sh SOURCE: what promtool says of the files of examples/monitoring, and of what zce-watch
# exports.
set -eu
cd "$1/examples/monitoring"
promtool check config prometheus.yml
said=$(promtool check metrics <"$1/tests/watch/channel.prom" 2>&1)
[ -z "$said" ] || { echo "channel.prom: $said"; exit 1; }
promtool test rules zce-rules-test.yml zce-week-test.yml

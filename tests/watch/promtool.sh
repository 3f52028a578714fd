#!/usr/bin/env bash
# promtool.sh SOURCE: what promtool says of the files of examples/monitoring, and of what zce-watch
# exports.
set -eu
cd "$1/examples/monitoring"
promtool check config prometheus.yml
said=$(promtool check metrics <"$1/tests/watch/channel.prom" 2>&1)
[ -z "$said" ] || { echo "channel.prom: $said"; exit 1; }
# Each alarm leads to a part of the page.
sed -n 's/.*- alert: //p' zce-rules.yml | while read -r alarm; do
    grep -qx "### $alarm" "$1/docs/watch.md" && grep -qx " *runbook: docs/watch.md#${alarm,,}" zce-rules.yml ||
        { echo "$alarm: nothing in docs/watch.md, or another runbook"; exit 1; }
done
promtool test rules zce-rules-test.yml zce-week-test.yml

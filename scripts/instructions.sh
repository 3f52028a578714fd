#!/usr/bin/env bash
# instructions.sh [BUILD]: how many instructions VelaRecv costs above the vendor's poll with the
# callback called straight from its handler, counted by callgrind; fails if a bound is missed.
# The bounds stand here and nowhere else.
set -euo pipefail
build=${1:-$(dirname "$0")/../build/release}
build=$(cd "$build" && pwd)
bound_message=24
bound_idle=13
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
valgrind --tool=callgrind --callgrind-out-file=out --collect-atstart=no "$build/bin/instruction_bench" \
    >log 2>&1 || { cat log; exit 1; }
awk -v message=$bound_message -v idle=$bound_idle '
    /^desc: Trigger: Client Request: / { name = $NF }
    /^totals: / { total[name] = $2 }
    END {
        count = split("17 18 19 20 idle", kinds, " ")
        for (k = 1; k <= count; ++k) {
            kind = kinds[k]
            if (!(("library-" kind) in total) || !(("vendor-" kind) in total) || !(("least-" kind) in total)) { print "no count of " kind; exit 1 }
            above = (total["library-" kind] - total["vendor-" kind]) / 1000
            bound = kind == "idle" ? idle : message
            printf "ratio instructions-%s %.2f at-most %d\n", kind, above, bound
            printf "ratio instructions-least-%s %.2f\n", kind, (total["least-" kind] - total["vendor-" kind]) / 1000
            printf "figure instructions, %s: %.2f above the %.2f of the vendor\x27s poll and a direct call, %s\n", kind == "idle" ? "an idle poll" : "a message of type " kind, above, total["vendor-" kind] / 1000, above <= bound ? "ok" : "MISSED"
            missed += above > bound
        }
        exit missed > 0
    }' out.*

#!/usr/bin/env bash
# check.sh BUILD SOURCE: every test that the conformance tables name exists, every row names one, and
# no table is empty.
#
# A table row is "| rule | `Suite.Case` |", several tests separated by blanks or commas.
set -euo pipefail
build=$1
tables=$2/tests/conformance
export LC_ALL=C

known=$(mktemp)
trap 'rm -f "$known"' EXIT
# A parameterised case is named without its parameter's number.
ctest --test-dir "$build" -N | sed -n 's/^ *Test *#[0-9]*: //p' |
    sed -E 's/ *# GetParam.*//; s/^([A-Za-z0-9_]+\/)?([A-Za-z0-9_]+\.[A-Za-z0-9_]+)(\/.*)?$/\2/' |
    sort -u >"$known"

awk -v known="$known" '
    BEGIN { while ((getline test < known) > 0) exists[test] = 1 }
    FNR == 1 { if (file != "" && rows == 0) { print file ": no rows"; bad = 1 } file = FILENAME; rows = 0 }
    /^\|/ && !/^\| *-|^\|-/ {
        count = split($0, cell, /[^\\]\|/)
        if (cell[1] ~ /^\| *Rule *$/) next
        rows++; total++
        line = $0; named = 0
        while (match(line, /`[A-Za-z0-9_]+\.[A-Za-z0-9_]+`/)) {
            test = substr(line, RSTART + 1, RLENGTH - 2)
            line = substr(line, RSTART + RLENGTH)
            if (test ~ /\.(h|cpp|ini|md|sh)$/) continue
            named++
            if (!(test in exists)) { print FILENAME ":" FNR ": no test " test; bad = 1 }
            else used[test] = 1
        }
        if (!named) { print FILENAME ":" FNR ": a rule without a test"; bad = 1 }
    }
    END {
        if (rows == 0) { print file ": no rows"; bad = 1 }
        n = 0; for (test in used) n++
        printf "conformance: %d rules, held by %d tests\n", total, n
        exit bad
    }' "$tables"/*.md

#!/usr/bin/env bash
# faults.sh BUILD SOURCE: in the page of the software board every fault of the board is explained and
# has a row of what the library does about it, and every such row names a test that exists. That the
# rows are right is what those tests are for.
set -euo pipefail
build=$1
page=$2/docs/software-board.md
export LC_ALL=C

kinds=$(sed -n 's/^ *{Fault::[A-Za-z]*, [a-z]*, "\([a-z-]*\)".*/\1/p' "$2/board/memory/Faults.cpp")
tests=$(ctest --test-dir "$build" -N | sed -n 's/^ *Test *#[0-9]*: //p')

bad=0
complain() {
    echo "$1"
    bad=1
}
explained=$(sed -n '/^## Faults/,/^### /p' "$page")
rows=$(sed -n '/^### What the library does about them/,/^## /p' "$page" | grep '^| `' || true)
[ "$(wc -l <<<"$kinds")" -eq 15 ] || complain "not the 15 kinds of faults: $kinds"
for kind in $kinds; do
    grep -q "^| \`$kind\` |" <<<"$explained" || complain "$page: $kind is not explained"
    grep -qE "^\| \`$kind[ \`]" <<<"$rows" || complain "$page: no row of $kind"
done
while read -r row; do
    test=$(sed -n 's/.*| `\([A-Za-z0-9_]*\.[A-Za-z0-9_]*\)` |$/\1/p' <<<"$row")
    grep -qxF -- "$test" <<<"$tests" || complain "$page: no test '$test': $row"
done <<<"$rows"
for test in $(grep -E '^(Faults|StreamFaults|SendFaults)\.' <<<"$tests"); do
    grep -qF "| \`$test\` |" <<<"$rows" || complain "$page: no row of the test $test"
done
echo "faults: $(wc -w <<<"$kinds") kinds, $(wc -l <<<"$rows") rows"
exit $bad

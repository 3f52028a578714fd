#!/usr/bin/env bash
# docs.sh SOURCE: the code that the README shows is the file that the build compiles, and every file
# that the pages link to is there, and every test that the architecture page names as well.
set -euo pipefail
cd "$1"
export LC_ALL=C
diff -u examples/minimal.cpp <(sed -n '/^```cpp$/,/^```$/p' README.md | sed '1d;$d') ||
    { echo "README.md shows another examples/minimal.cpp"; exit 1; }
status=0
while IFS=: read -r page link; do
    target=$(dirname "$page")/${link%%#*}
    [ -e "$target" ] || { echo "$page links to $link, which is not there"; status=1; }
done < <(grep -oE '\]\([^)# ]+[^) ]*\)' README.md docs/*.md | sed -E 's/\]\(([^)]*)\)/\1/' | grep -vE ':(https?|mailto):')
while IFS=. read -r suite name; do
    grep -rqE "TEST(_F|_P)?\($suite, ?${name%\*}" tests --include='*.cpp' ||
        { echo "docs/architecture.md names the test $suite.$name, which is not there"; status=1; }
done < <(grep -oE '`[A-Z][A-Za-z0-9]+\.[A-Z*][A-Za-z0-9*]+`' docs/architecture.md | tr -d '`' | grep -vE '\.(h|cpp|cmake)$' | sort -u)
exit $status

#!/usr/bin/env bash
# check.sh ABI-LIBRARY LIBRARY RECORD: the exported functions, variables, types and slots are those
# of RECORD. ABI-LIBRARY has the debug information; it must export what LIBRARY does.
set -euo pipefail
abi=$1
library=$2
record=$3
export LC_ALL=C

symbols() { nm -D --defined-only "$1" | cut -d" " -f3- | sort -u; }
diff -u <(symbols "$library") <(symbols "$abi") || {
    echo "The library exports a symbol that no source of velazce_abi defines, or the reverse:"
    echo "see tests/system/abi/CMakeLists.txt."
    exit 1
}
status=0
abidiff "$record" "$abi" || status=$?
if [ $status -ne 0 ]; then
    echo
    echo "The binary interface differs from $record (abidiff: $status)."
    echo "If that is meant: ./scripts/abi.sh --update, and commit the record with the change."
    exit 1
fi

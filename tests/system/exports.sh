#!/usr/bin/env bash
# exports.sh LIBRARY LIST: the library shows what LIST says and nothing else, needs what it may need
# and bears its name.
set -euo pipefail
library=$1
list=$2
export LC_ALL=C

diff -u <(grep -v '^#' "$list" | sort -u) <(nm -DC --defined-only "$library" | cut -d" " -f3- | sort -u) ||
    { echo "the exported symbols differ from $list"; exit 1; }

needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort | tr '\n' ' ')
for name in $needed; do
    case $name in
        libenyx-hw-c.so.5 | libpthread.so.* | libstdc++.so.* | libgcc_s.so.* | libm.so.* | libc.so.*) ;;
        *) echo "needs $name"; exit 1 ;;
    esac
done
case " $needed" in
    *" libenyx-hw-c.so.5 "*) ;;
    *) echo "does not need libenyx-hw-c.so.5"; exit 1 ;;
esac

readelf -d "$library" | grep -q 'SONAME.*\[libVelaZceMdApi.so.3\]' || { echo "wrong soname"; exit 1; }
[ "$(basename "$(readlink -f "$library")")" = libVelaZceMdApi.so.3.10.0 ] || { echo "wrong file name"; exit 1; }

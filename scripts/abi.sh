#!/usr/bin/env bash
# abi.sh [--update]: compares the library's binary interface with its record,
# tests/system/abi/libVelaZceMdApi.abi. --update writes the record anew, for a change that is meant:
# it is committed together with the change.
source "$(dirname "$0")/common.sh"

need "${BUILD_PACKAGES[@]}" abigail-tools binutils
built=$(build release velazce_abi VelaZceMdApi) || { echo "$built" | tail -n 30; exit 1; }
record=tests/system/abi/libVelaZceMdApi.abi
library=build/release/tests/system/abi/libvelazce_abi.so
case ${1:-} in
--update)
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs \
        --type-id-style hash --exported-interfaces-only \
        --out-file "$record" "$library"
    git --no-pager diff --stat -- "$record"
    ;;
'') tests/system/abi/check.sh "$library" build/release/lib/libVelaZceMdApi.so "$record" &&
    echo "the binary interface is the one on record" ;;
*)
    echo "usage: abi.sh [--update]" >&2
    exit 2
    ;;
esac

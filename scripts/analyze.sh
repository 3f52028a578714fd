#!/usr/bin/env bash
# analyze.sh [cppcheck] [clang] [gcc]: static analysis, all three without an argument. Exit status 0
# only if nothing is found.
#
#   cppcheck  src, program, relay, board, capture, tools, include and examples
#   clang     clang's analyzer over the same, with all of its checks, one file at a time. Takes minutes
#   gcc       g++ -fanalyzer over src, board/memory and board/vendor
source "$(dirname "$0")/common.sh"

ROOMS=(src program relay board capture tools include examples)
found=0

run_cppcheck() {
    need cppcheck
    say "cppcheck"
    mkdir -p build/cppcheck
    cppcheck --quiet --std=c++20 --language=c++ -j"$(nproc)" --cppcheck-build-dir=build/cppcheck \
        --enable=warning,performance,portability --inline-suppr --error-exitcode=1 \
        --suppressions-list=scripts/analyze/cppcheck.txt \
        -Iinclude -Isrc -I. -Iboard -Iboard/include -Icapture -Itools \
        "${@:-${ROOMS[@]}}"
}

# commands PRESET FOLDER...: the build's commands of the sources in these folders, one a line: file,
# directory, command.
commands() {
    [ -f "build/$1/compile_commands.json" ] || cmake --preset "$1" >/dev/null
    python3 - "$@" <<'EOF'
import json, os, sys
root = os.getcwd()
seen = set()
for entry in json.load(open(f"build/{sys.argv[1]}/compile_commands.json")):
    name = os.path.relpath(entry["file"], root)
    if name not in seen and any(name.startswith(room + "/") for room in sys.argv[2:]):
        seen.add(name)
        print(name, entry["directory"], entry["command"], sep="\t")
EOF
}

run_clang() {
    need clang-tidy
    say "clang's analyzer"
    commands tidy "${ROOMS[@]}" | cut -f1 | xargs -P"$(nproc)" -n4 \
        clang-tidy --quiet -p build/tidy --checks='-*,clang-analyzer-*' 2>/dev/null
}

# g++ 12 does not follow constructors, operator new (which throws, and is never null) and the
# standard containers: what it says of those is not about this code and is left out. The others, the
# calls of signal handlers, double and early frees, null pointers and open streams, are looked at.
NOT_FOR_CPP=(-Wno-analyzer-use-of-uninitialized-value -Wno-analyzer-malloc-leak
             -Wno-analyzer-possible-null-argument -Wno-analyzer-possible-null-dereference)

run_gcc() {
    say "g++ -fanalyzer"
    local name directory command status=0
    while IFS=$'\t' read -r name directory command; do
        command=${command#*ccache }
        (cd "$directory" && eval "${command% -o *} -O1 -Wno-error -fanalyzer ${NOT_FOR_CPP[*]} -o /dev/null -c '$ROOT/$name'") 2>&1 |
            grep -E 'Wanalyzer' && status=1
    done < <(commands debug src board/memory board/vendor)
    return $status
}

for tool in "${@:-cppcheck clang gcc}"; do
    for each in $tool; do
        case $each in
        cppcheck | clang | gcc) "run_$each" || found=1 ;;
        *)
            echo "usage: analyze.sh [cppcheck] [clang] [gcc]" >&2
            exit 2
            ;;
        esac
    done
done
[ $found -eq 0 ] && echo "analyze: nothing found"
exit $found

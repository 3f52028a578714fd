#!/usr/bin/env bash
# Every test of the tree: style, static analysis, the release build with all tests, the unit and board
# tests under AddressSanitizer + UndefinedBehaviorSanitizer and under ThreadSanitizer, the fuzz targets
# for 20 s each, whole processes under valgrind. docs/testing.md has the steps and their times.
# Installs what is missing (apt), builds what changed, ends with one line "test: ok ..." or
# "test: FAILED: ...". Exit status 0 only if everything passed. The tests of the release build are run
# each time; what passed under a sanitizer, under valgrind or as a fuzz target is not repeated as long
# as nothing that it depends on has changed (scripts/passed/main.py).
# Usage: scripts/test.sh [--quick | --again]
#          --quick   style, the release build and its tests alone, without those that take long
#          --again   everything, also what passed before and has not changed
source "$(dirname "$0")/common.sh"

quick=
again=()
case "${*-}" in
'') ;;
--quick) quick=yes ;;
--again) again=(--again) ;;
*)
    echo "Usage: scripts/test.sh [--quick | --again]"
    exit 2
    ;;
esac

started=$(date +%s)
step=start
ahead=
scratch=
trap 'status=$?; [ -z "$ahead" ] || kill -- "-$ahead" 2>/dev/null || true; [ -z "$scratch" ] || rm -f "$scratch"; [ $status -eq 0 ] || printf "\ntest: FAILED: %s (exit status %s)\n" "$step" "$status"' EXIT

# The processor seconds of everything that this script has run and that has ended.
cpu_seconds() {
    times >"$scratch" # here, not behind a pipe: a subshell has children of its own
    cpu=$(awk 'NR == 2 { gsub(/s/, ""); split($1, u, "m"); split($2, s, "m")
                         printf "%d", u[1] * 60 + u[2] + s[1] * 60 + s[2] }' "$scratch")
}

# run NAME COMMAND...: one step. What each took is printed at the end.
run() {
    step=$1
    shift
    say "$step"
    local since cpu before
    since=$(date +%s)
    cpu_seconds
    before=$cpu
    "$@"
    cpu_seconds
    took+=$(printf '%7d %7d   %s' $(($(date +%s) - since)) $((cpu - before)) "$step")$'\n'
}

check_style() {
    local files
    mapfile -t files < <(find include program src relay board capture tools examples tests bench fuzz -name '*.h' -o -name '*.cpp' | sort)
    clang-format --dry-run -Werror "${files[@]}"
    echo "${#files[@]} files are formatted"
    scripts/check-includes.sh
}

# tests PRESET AT_ONCE CTEST_OPTIONS...
tests() {
    local preset=$1 at_once=$2
    shift 2
    ctest --test-dir "build/$preset" --output-on-failure --no-tests=error -j"$at_once" "$@" |
        tee "build/$preset/ctest.out" | { grep -vE '^ *(Start|[0-9]+/[0-9]+ Test +#.*Passed)' || true; }
    total=$((total + $(sed -n 's/.*tests passed, .* out of \([0-9]*\)$/\1/p' "build/$preset/ctest.out")))
}

# Those of the labels unit and board, as far as they have not passed with these very programs.
tests_once() {
    local preset=$1 status=0
    passed due "build/$preset" "$LABELS" "${again[@]}" || status=$?
    [ $status -ne 3 ] || return 0
    [ $status -eq 0 ] || return 1
    tests "$preset" $((2 * $(nproc))) -I "$(cat "build/$preset/due.txt")"
    passed passed "build/$preset" "$LABELS"
}

# step_once NAME PRESET COMMAND...: what the preset has built is in it.
step_once() {
    local name=$1 preset=$2 status=0
    shift 2
    passed step "$name" "build/$preset" "${again[@]}" || status=$?
    [ $status -ne 3 ] || return 0
    [ $status -eq 0 ] || return 1
    "$@"
    passed step-passed "$name" "build/$preset"
}

passed() { python3 -B scripts/passed/main.py "$@"; }

# The next tree is built by what the tests that run leave of the processors.
build_ahead() {
    setsid nice -n 19 bash -c 'source scripts/common.sh; build "$@"' build_ahead "$@" >"build/$1.out" 2>&1 &
    ahead=$!
}

built_ahead() {
    wait "$ahead" || { cat "build/$1.out"; return 1; }
    ahead=
    tail -n 1 "build/$1.out"
}

LABELS='^(unit|board)$'
total=0
took=
scratch=$(mktemp)
run "What is needed" need "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
run "Style and layering" check_style
run "Static analysis: cppcheck" scripts/analyze.sh cppcheck
run "Build: release, g++" build release
# Most tests of whole processes wait: three for each processor.
if [ -n "$quick" ]; then
    run "Tests: release" tests release $((3 * $(nproc))) -E '^(Crash|Soak|ExampleScenario|RandomMoments)\.|Anomaly\.'
else
    build_ahead asan tests_unit tests_board
    run "Tests: release" tests release $((3 * $(nproc)))
    run "clang-tidy" scripts/tidy.sh
    run "Build: AddressSanitizer + UndefinedBehaviorSanitizer, clang++" built_ahead asan
    build_ahead tsan tests_unit tests_board
    run "Tests: AddressSanitizer + UndefinedBehaviorSanitizer" tests_once asan
    run "Build: ThreadSanitizer, clang++" built_ahead tsan
    build_ahead fuzz fuzz
    run "Tests: ThreadSanitizer" tests_once tsan
    run "Whole processes under valgrind" step_once valgrind release scripts/valgrind.sh
    run "Build: fuzz targets, clang++" built_ahead fuzz
    run "Fuzzing: each target for 20 s" step_once fuzzing fuzz scripts/fuzz.sh --seconds 20
fi

printf '\n%7s %7s   %s\n%s' seconds cpu step "$took"
printf 'test: ok, %d test runs in %d s\n' "$total" $(($(date +%s) - started))

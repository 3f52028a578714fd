#!/usr/bin/env bash
# Every test of the tree: style, the release build with all tests, the unit and board tests under
# AddressSanitizer + UndefinedBehaviorSanitizer (clang, clang-tidy on the way) and ThreadSanitizer.
# Installs what is missing (apt), builds what changed, ends with one line "test: ok ..." or
# "test: FAILED: ...". Exit status 0 only if everything passed.
source "$(dirname "$0")/common.sh"

started=$(date +%s)
step=start
trap 'status=$?; [ $status -eq 0 ] || printf "\ntest: FAILED: %s (exit status %s)\n" "$step" "$status"' EXIT

run() {
    step=$1
    shift
    say "$step ($(($(date +%s) - started)) s since the start)"
    "$@"
}

check_style() {
    local files
    mapfile -t files < <(find include src board capture tools examples tests bench fuzz -name '*.h' -o -name '*.cpp' | sort)
    clang-format --dry-run -Werror "${files[@]}"
    echo "${#files[@]} files are formatted"
    scripts/check-includes.sh
}

# More at once than there are processors: most tests of whole processes wait.
tests() {
    local preset=$1
    shift
    ctest --test-dir "build/$preset" --output-on-failure --no-tests=error -j$((2 * $(nproc))) "$@" |
        tee "build/$preset/ctest.out" | { grep -vE '^ *(Start|[0-9]+/[0-9]+ Test +#.*Passed)' || true; }
    total=$((total + $(sed -n 's/.*tests passed, .* out of \([0-9]*\)$/\1/p' "build/$preset/ctest.out")))
}

total=0
run "What is needed" need "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
run "Style and layering" check_style
run "Static analysis: cppcheck" scripts/analyze.sh cppcheck
run "Build: release, g++" build release
run "Tests: release" tests release
run "Whole processes under valgrind" scripts/valgrind.sh
run "Build: AddressSanitizer + UndefinedBehaviorSanitizer, clang++ and clang-tidy" build asan
run "Tests: AddressSanitizer + UndefinedBehaviorSanitizer" tests asan -L 'unit|board'
run "Fuzzing: each target for 20 s" scripts/fuzz.sh --seconds 20
run "Build: ThreadSanitizer, g++" build tsan tests_unit tests_board
run "Tests: ThreadSanitizer" tests tsan -L 'unit|board'

printf '\ntest: ok, %d test runs in %d s\n' "$total" $(($(date +%s) - started))

#!/usr/bin/env bash
# Line and branch coverage of src/ by the unit tests (gcovr): a table, and the details as web pages in
# build/coverage/report. Takes some minutes.
source "$(dirname "$0")/common.sh"
need "${BUILD_PACKAGES[@]}" gcovr
build coverage tests_unit
find build/coverage -name '*.gcda' -delete
ctest --test-dir build/coverage -L unit -j"$(nproc)" --output-on-failure --no-tests=error |
    grep -vE '^ *(Start|[0-9]+/[0-9]+ Test +#.*Passed)'
mkdir -p build/coverage/report
gcovr --root . --filter 'src/' --exclude-throw-branches --exclude-unreachable-branches \
    --gcov-ignore-parse-errors --html-details build/coverage/report/index.html --print-summary \
    build/coverage

#!/usr/bin/env bash
# clang-tidy on every file of the tree whose last look does not stand any more: the file, a header
# that it includes, its compile command, a .clang-tidy above it or clang-tidy itself has changed. What
# was looked at and found clean stands in build/tidy/clean.txt, and for everybody in
# scripts/tidy/clean.txt. Prints the findings, then one line of figures; fails on a finding.
# Usage: scripts/tidy.sh [--all] [--record] [FILE...]
#   --all: forget earlier looks   --record: write scripts/tidy/clean.txt   FILE: these alone
source "$(dirname "$0")/common.sh"
need "${BUILD_PACKAGES[@]}" clang-14 clang-tidy
configure tidy
ninja -C build/tidy build.ninja >/dev/null # again if a CMakeLists.txt has changed
exec python3 -B scripts/tidy/main.py "$@"

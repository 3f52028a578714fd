#!/usr/bin/env bash
# mutate.sh [--sample N] [--seed S] [FILE...]: changes one operator, constant, text or statement of
# the code at a time (src/ and the board's ring, lock and register file by default) and runs the
# tests of its file. Lists the changes that no test noticed; exit status 0 if at least 95 % were
# noticed. --help tells the other options. Needs python3 and the release build, which it makes.
source "$(dirname "$0")/common.sh"

case " $* " in *' --help '* | *' -h '* | *' --list '*) exec python3 scripts/mutate/main.py "$@" ;; esac
need "${BUILD_PACKAGES[@]}"
[ -f build/release/build.ninja ] || cmake --preset release >/dev/null
exec python3 scripts/mutate/main.py "$@"

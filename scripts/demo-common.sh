# Shared by the two demos; sourced behind common.sh, not run.
# shellcheck shell=bash
#
# `demo` is the name of the demo, which its last line begins with: "demo: ok ..." or, with the reason,
# "demo: FAILED: why". It defines clean_up, which takes away what its processes leave outside $work.

work=$(mktemp -d "${TMPDIR:-/tmp}/zce-$demo.XXXXXX")
why="stopped early"
processes=() # killed at the end, however it comes

finish() {
    local status=$? pid
    for pid in "${processes[@]}"; do
        kill -KILL "$pid" 2>/dev/null && wait "$pid" 2>/dev/null || true
    done
    clean_up
    if [ $status -eq 0 ]; then
        rm -rf "$work"
    else
        echo "$demo: what each program printed is in $work"
        printf '%s: FAILED: %s\n' "$demo" "$why"
    fi
    exit $status
}
trap finish EXIT
trap 'why=interrupted; exit 130' INT TERM

fail() {
    why=$1
    exit 1
}

# prepare PACKAGES TARGET...: installs these packages (words) and what every build needs, where they
# are missing, and builds the targets; $bin and $lib are where they are then.
prepare() {
    say "Installing what is missing, and building (Release)"
    why="the installation failed"
    # shellcheck disable=SC2086
    need "${BUILD_PACKAGES[@]}" $1
    why="the build failed"
    build release "${@:2}"
    why="stopped early"
    bin=$ROOT/build/release/bin
    lib=$ROOT/build/release/lib
}

# wait_for FILE TEXT SECONDS: until FILE holds TEXT.
wait_for() {
    local deadline=$(($(date +%s) + $3))
    until grep -qF -- "$2" "$1" 2>/dev/null; do
        [ "$(date +%s)" -lt $deadline ] || fail "no \"$2\" in $(basename "$1") in $3 seconds"
        sleep 0.1
    done
}

# wait_end PID NAME SECONDS [STATUS]: until the process has ended, with this status (0).
wait_end() {
    local deadline=$(($(date +%s) + $3)) status=0
    while kill -0 "$1" 2>/dev/null; do
        [ "$(date +%s)" -lt $deadline ] || fail "$2 did not end"
        sleep 0.1
    done
    wait "$1" || status=$?
    [ $status -eq "${4:-0}" ] || fail "$2 ended with status $status, not ${4:-0}"
}

# field NAME LINE: the value of NAME=value in LINE.
field() { sed -n "s/.* $1=\([0-9]*\).*/\1/p" <<<"$2"; }

#!/usr/bin/env bash
# valgrind.sh: whole processes under valgrind's memcheck, leaks and descriptors included: a master
# that learns and a second channel from start to end, a master that recovers, and the board itself
# with its programs. About half a minute; ends with "valgrind: ok ..." or with what was found.
source "$(dirname "$0")/common.sh"

need "${BUILD_PACKAGES[@]}" valgrind
built=$(build release zce-recv zce-board zce-top) || { echo "$built" | tail -n 30; exit 1; }

bin=$ROOT/build/release/bin
work=$(mktemp -d "${TMPDIR:-/tmp}/zce-valgrind.XXXXXX")
started=$(date +%s)
declare -A pids=()
checked=0

finish() {
    local status=$? pid
    for pid in "${pids[@]}"; do
        { kill -KILL "$pid" && wait "$pid"; } 2>/dev/null || true
    done
    rm -f "/dev/shm/valgrind$$-zce-board.0"
    if [ $status -eq 0 ]; then
        rm -rf "$work"
    else
        printf 'valgrind: FAILED; what each program printed is in %s\n' "$work"
    fi
    exit $status
}
trap finish EXIT
trap 'exit 130' INT TERM

memcheck=(valgrind --quiet --error-exitcode=99 --leak-check=full --track-fds=yes
    --errors-for-leak-kinds=definite,indirect,possible --log-file=memcheck)
export ZCE_BOARD_SHM_PREFIX=valgrind$$-

# clock HHMM SS: everything started from here on sees this local time of day.
clock() {
    local ahead=$((($(date -u +%s) - $(date -u -d "1970-01-01 $1" +%s)) % 86400))
    export TZ=VIRT$((ahead / 3600)):$((ahead / 60 % 60)):$((ahead % 60))
}

# begin NAME COMMAND...: in a directory of its own, which may be there.
begin() {
    local name=$1
    shift
    mkdir -p "$work/$name"
    (cd "$work/$name" && exec "$@" >output 2>&1) &
    pids[$name]=$!
}

until_says() {
    local deadline=$((SECONDS + 90))
    until grep -qF -- "$2" "$work/$1/output"; do
        if [ $SECONDS -ge $deadline ] || ! kill -0 "${pids[$1]}" 2>/dev/null; then
            echo "$1 did not say: $2"
            tail -n 15 "$work/$1/output"
            return 1
        fi
        sleep 0.1
    done
}

# left_open NAME: the descriptors of its own that are open at its end and are not meant to be. Meant, each
# once, because they are kept for the life of the process: the log's, the cache file's, and two of the
# board's memory: the one on which the process has locked its token of the core lock, so that the token
# is dead when the process is (board/memory/CoreLock.h), and the one by which it asks whether the board
# runs (zce_board_state). What it was started with is not its own.
left_open() {
    awk -v memory="/dev/shm/$ZCE_BOARD_SHM_PREFIX" '
        function judge(kind) {
            kind = "unmeant"
            if (file == "bin") kind = "cache"
            else if (file ~ /^\/tmp\/fpgalog\/\//) kind = "log"
            else if (index(file, memory) == 1 && stack ~ /CCoreLock::Identify/) kind = "lock"
            else if (index(file, memory) == 1 && stack ~ /enyx_hw_accelerator_get/) kind = "life"
            if (file != "" && !inherited && (kind == "unmeant" || meant[kind]++)) print file "\n" stack
            file = ""
        }
        { sub(/^==[0-9]+== ?/, "") }
        /^ *$/ || /^Open / { judge() }
        /^Open / { sub(/^Open [^:]*: ?/, ""); file = $0 == "" ? "?" : $0; stack = ""; inherited = 0; next }
        file != "" { stack = stack $0 "\n"; if (/<inherited from parent>/) inherited = 1 }
        END { judge() }' "$work/$1/memcheck"
}

# look NAME STATUS: what memcheck says of it.
look() {
    local log=$work/$1/memcheck left
    left=$(left_open "$1")
    if [ "$2" -ne 0 ] || [ -n "$left" ] || ! grep -q '^==[0-9]*== FILE DESCRIPTORS:' "$log" ||
        grep -qE 'Invalid|uninitialised|lost in loss' "$log"; then
        echo "$1 (exit status $2):"
        cat "$log"
        [ -z "$left" ] || printf 'Left open, and not meant to be:\n%s\n' "$left"
        return 1
    fi
    checked=$((checked + 1))
}

# end NAME: interrupts it and looks at what it has done.
end() {
    local status=0
    kill -INT "${pids[$1]}"
    wait "${pids[$1]}" || status=$?
    unset "pids[$1]"
    look "$1" $status
}

# receive NAME CHANNEL: a receiver under memcheck.
receive() {
    mkdir -p "$work/$1"
    printf '[config]\ndevice = xilinx0:%s\n[channel0]\ninsts = SR\noptions = recv\nspd = recv\n' "$2" \
        >"$work/$1/config.ini"
    printf '[channel3]\ninsts = all\noptions = norecv\n' >>"$work/$1/config.ini"
    begin "$1" "${memcheck[@]}" "$bin/zce-recv" config.ini --print 1
}

printf '%s\n' SR301 SR305 SR301C5000 CF301 TA301 'SPD-SR301&SR305' >"$work/instruments"
board=("$bin/zce-board" --bus 0 --instruments "$work/instruments" --seed 7 --rate 200
    --broadcast-cycle 0.2)

say "A master that learns, and a second channel"
clock 08:54:50
begin board "${board[@]}"
until_says board ready
receive master 0
until_says master 'Fpga start transmit inst map pkt.'
receive second 3
until_says master 'All channel subs over.'
until_says master 'zce-recv type='
until_says second 'zce-recv type='
end master
end second

say "A master that recovers"
clock 09:30:00
receive master 0
until_says master 'Init dma channel :CUSTOM_CHAN0_DATA success.'
end master

say "The board's programs, and the board"
mkdir -p "$work/top" "$work/ctl"
(cd "$work/top" && "${memcheck[@]}" "$bin/zce-top" --once >output 2>&1) && look top 0
(cd "$work/ctl" && "${memcheck[@]}" "$bin/zce-board" ctl status >output 2>&1) && look ctl 0
kill -INT "${pids[board]}" && wait "${pids[board]}"
begin board "${memcheck[@]}" "${board[@]}"
until_says board ready
sleep 2
end board

printf '\nvalgrind: ok, %d processes in %d s\n' $checked $(($(date +%s) - started))

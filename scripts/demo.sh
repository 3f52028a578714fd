#!/usr/bin/env bash
# The main job on the software board: a board that plays the exchange, a master on channel 0 and a
# second process on channel 3, from shortly before the call auction's end into market data, and a
# check that nothing was lost. Installs what is missing (apt), builds what changed, runs for about
# 45 seconds, and ends with "demo: ok ..." or "demo: FAILED: why".
source "$(dirname "$0")/common.sh"

MARKET_DATA_SECONDS=${MARKET_DATA_SECONDS:-12}
RATE=${RATE:-10000}

work=$(mktemp -d "${TMPDIR:-/tmp}/zce-demo.XXXXXX")
why="stopped early"
processes=()

finish() {
    local status=$? pid
    for pid in "${processes[@]}"; do
        kill -KILL "$pid" 2>/dev/null && wait "$pid" 2>/dev/null
    done
    if [ $status -eq 0 ]; then
        rm -rf "$work"
    else
        echo "demo: what each program printed is in $work"
        printf 'demo: FAILED: %s\n' "$why"
    fi
    exit $status
}
trap finish EXIT
trap 'why=interrupted; exit 130' INT TERM

fail() {
    why=$1
    exit 1
}
tell() { printf '%s  %s\n' "$(date +%H:%M:%S)" "$*"; }

# wait_for FILE TEXT SECONDS: until FILE holds TEXT.
wait_for() {
    local deadline=$(($(date +%s) + $3))
    until grep -qF -- "$2" "$1" 2>/dev/null; do
        [ "$(date +%s)" -lt $deadline ] || fail "no \"$2\" in $3 seconds"
        sleep 0.1
    done
}

# wait_end PID NAME SECONDS: until the process has ended, and well.
wait_end() {
    local deadline=$(($(date +%s) + $3)) status=0
    while kill -0 "$1" 2>/dev/null; do
        [ "$(date +%s)" -lt $deadline ] || fail "$2 did not end"
        sleep 0.1
    done
    wait "$1" || status=$?
    [ $status -eq 0 ] || fail "$2 ended with status $status"
}

# virtual_zone HH:MM:SS: a TZ under which the local time of day is HH:MM:SS now.
virtual_zone() {
    local now want diff sign=-
    now=$(date -u +%s)
    want=$(date -u -d "1970-01-01 $1" +%s)
    diff=$(((want - now % 86400 + 86400 + 43200) % 86400 - 43200))
    [ $diff -lt 0 ] && sign=+ && diff=$((-diff))
    printf 'VIRT%s%02d:%02d:%02d' $sign $((diff / 3600)) $((diff / 60 % 60)) $((diff % 60))
}

# field NAME LINE: the value of NAME=value in LINE.
field() { sed -n "s/.* $1=\([0-9]*\).*/\1/p" <<<"$2"; }

# expected RULES: of the board's instruments (index,type,name lines on standard input), the names
# that the rules select; written apart from the library's own code.
expected() {
    awk -F, -v rules="$1" '
        function option(name) { return name ~ /[0-9][CP][0-9]/ }
        BEGIN { n = split(rules, item, " "); for (i = 1; i <= n; i++) has[item[i]] = 1 }
        {
            class = $3; sub(/[^A-Z].*/, "", class)
            if ($3 ~ /^SPD-/) ok = has["spd"]
            else if ($3 ~ /^IPS-/) ok = has["ips"]
            else ok = (has["all"] || has[class]) && (has["options"] || !option($3))
            if (ok) print $3
        }' | sort
}

say "Installing what is missing, and building (Release)"
why="the installation failed"
need "${BUILD_PACKAGES[@]}"
why="the build failed"
build release VelaZceMdApi enyx-hw-c zce-board zce-recv
why="stopped early"

bin=$ROOT/build/release/bin
export ZCE_BOARD_SHM_PREFIX="demo$$-"
TZ=$(virtual_zone 08:54:46)
export TZ
begin=$(date +%s)
mkdir -p "$work/master" "$work/second"
"$bin/zce-board" --bus 0 --products all --list-instruments >"$work/instruments"
total=$(wc -l <"$work/instruments")

say "The virtual day begins: it is $(date +%H:%M:%S) in Zhengzhou, the call auction is on"
tell "board: a software board on bus 0; its exchange lists $total instruments"
"$bin/zce-board" --bus 0 --products all --seed 1 --rate "$RATE" \
    --feeds "$ROOT/examples/config/feeds.ini" >"$work/board.log" 2>&1 &
board=$!
processes+=($board)
wait_for "$work/board.log" "ready" 10

tell "master: starts on channel 0 (rules: SR, CF, TA with options, and SPD- spreads)"
(cd "$work/master" && exec "$bin/zce-recv" "$ROOT/examples/config/master.ini" --print 3 \
    --names "$work/master/names") >"$work/master.log" 2>&1 &
master=$!
processes+=($master)
wait_for "$work/master.log" "Fpga start transmit inst map pkt." 30
tell "master: the board is reset and set up, every instrument unsubscribed; it now listens to the instrument broadcast"

tell "second: starts on channel 3 (rules: all futures and IPS- spreads, no options)"
(cd "$work/second" && exec "$bin/zce-recv" "$ROOT/examples/config/channel3.ini" --print 3 \
    --own-loop --names "$work/second/names") >"$work/second.log" 2>&1 &
second=$!
processes+=($second)
wait_for "$work/second.log" "Init dma channel :CUSTOM_CHAN3_DATA success." 15

until grep -qF "Call auction time has expired" "$work/master.log"; do
    tell "master: has learnt $(grep -c , "$work/master/bin" 2>/dev/null || true) of $total instruments"
    [ $(($(date +%s) - begin)) -lt 60 ] || fail "the call auction did not end"
    kill -0 $master 2>/dev/null || fail "the master ended early"
    sleep 3
done
tell "master: the call auction is over; $(sed -n 's/.*totally parse \([0-9]*\) instrumentid.*/\1/p' "$work/master.log") records parsed, the cache file is closed"
wait_for "$work/master.log" "All channel subs over." 20
tell "master: the rules are applied and written into the board's tables: \"All channel subs over.\""
wait_for "$work/master.log" "type=" 10
wait_for "$work/second.log" "type=" 10
tell "both: market data arrives; the first messages:"
grep -hE '^zce-recv .*type=' "$work/master.log" | head -3 | sed 's/^/            master  /'
grep -hE '^zce-recv .*type=' "$work/second.log" | head -3 | sed 's/^/            second  /'
for ((i = 0; i < MARKET_DATA_SECONDS; i += 3)); do
    sleep 3
    tell "board: $(grep '^status' "$work/board.log" | tail -1)"
done

say "The virtual day ends: the board stops, the receivers drain what is left and end"
kill -INT $board
wait_end $board zce-board 10
sleep 1
kill -INT $master $second
wait_end $master "the master" 10
wait_end $second "the second process" 10
processes=()

say "Checking"
check_channel() {
    local name=$1 channel=$2 rules=$3 sent got type
    sent=$(grep "^zce-board channel=$channel " "$work/board.log" | tail -1)
    got=$(grep "^zce-recv channel=$channel " "$work/$name.log" | tail -1)
    [ -n "$sent" ] || fail "the board says nothing of channel $channel"
    [ -n "$got" ] || fail "the receiver of channel $channel printed no last line"
    for type in 17 18 19 20; do
        [ "$(field type$type "$sent")" = "$(field type$type "$got")" ] ||
            fail "channel $channel, type $type: sent $(field type$type "$sent"), received $(field type$type "$got")"
    done
    [ "$(field total "$got")" -gt 0 ] || fail "channel $channel received nothing"
    [ "$(field gaps "$got")" = 0 ] || fail "channel $channel has gaps: $got"
    [ "$(field dropped "$sent")" = 0 ] || fail "the board dropped messages of channel $channel: $sent"
    tell "$name: $(field total "$got") messages, as many as the board sent, type by type; no gap"
    expected "$rules" <"$work/instruments" >"$work/$name/expected"
    cut -d, -f2 "$work/$name/names" | sort >"$work/$name/received"
    comm -13 "$work/$name/expected" "$work/$name/received" >"$work/$name/foreign"
    [ ! -s "$work/$name/foreign" ] || fail "channel $channel got $(head -1 "$work/$name/foreign"), which its rules do not ask for"
    grep -qE "\[channel:$channel\] Filter needed sgl count:$(grep -cvE '^(SPD|IPS)-' "$work/$name/expected"), cmb count:$(grep -cE '^(SPD|IPS)-' "$work/$name/expected" || true)\." "$work/master.log" ||
        fail "the master selected something else for channel $channel than its rules say"
    tell "$name: $(wc -l <"$work/$name/received") instruments seen, each among the $(wc -l <"$work/$name/expected") that its rules ask for"
}
check_channel master 0 "SR CF TA options spd"
check_channel second 3 "all ips"

tail -c 17 "$work/master/bin" | grep -qx bin_file_over_tag || fail "the cache file has no end tag"
grep , "$work/master/bin" | sort >"$work/cached"
awk -F, '{print $1 "," $3}' "$work/instruments" | sort | cmp -s - "$work/cached" ||
    fail "the cache file does not hold the exchange's instruments"
tell "cache file: $total instruments and the end tag"

total_of() { field total "$(grep "^zce-recv channel=$2 " "$work/$1.log" | tail -1)"; }
printf '\ndemo: ok, %s instruments learnt, %s + %s messages received on channels 0 and 3, 0 lost, %d s\n' \
    "$total" "$(total_of master 0)" "$(total_of second 3)" $(($(date +%s) - begin))

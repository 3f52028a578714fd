#!/usr/bin/env bash
# The main job on the software board: a board that plays the exchange, a master on channel 0 and a
# second process on channel 3, from shortly before the call auction's end into market data; then the
# master is started again inside trading time, twice; and a check that nothing was lost. Installs what
# is missing (apt), builds what changed, runs for about 50 seconds, and ends with "demo: ok ..." or
# "demo: FAILED: why".
#
#     ./scripts/demo.sh [--record DIRECTORY]
#
# With --record what each receiver polls is recorded to DIRECTORY/master.1.pcap, second.1.pcap, ...,
# to be played again with zce-board --replay. With ZCE_DEMO_WATCH=DIRECTORY in the environment the
# receivers are watched by libzce-watch.so, and what zce-watch export says of them towards the end of
# the day is in DIRECTORY/zce.prom.
record=
watch=${ZCE_DEMO_WATCH:+$(mkdir -p "$ZCE_DEMO_WATCH" && cd "$ZCE_DEMO_WATCH" && pwd)}
if [ $# -eq 2 ] && [ "$1" = --record ]; then
    mkdir -p "$2"
    record=$(cd "$2" && pwd)
elif [ $# -ne 0 ]; then
    echo "usage: ./scripts/demo.sh [--record DIRECTORY]" >&2
    exit 2
fi
source "$(dirname "$0")/common.sh"

MARKET_DATA_SECONDS=${MARKET_DATA_SECONDS:-6}
RATE=${RATE:-10000}

demo=demo
clean_up() { rm -f "/dev/shm/demo$$-zce-board.0"; } # a killed board could not
source "$ROOT/scripts/demo-common.sh"

jump=0 # seconds by which the virtual clock has been moved on
virtual_now() { date -d "+$jump seconds" +%H:%M:%S; }
tell() { printf '%s  %s\n' "$(virtual_now)" "$*"; }

# virtual_zone HH:MM:SS: a TZ under which the local time of day is HH:MM:SS now.
virtual_zone() {
    local now want diff sign=-
    now=$(date -u +%s)
    want=$(date -u -d "1970-01-01 $1" +%s)
    diff=$(((want - now % 86400 + 86400 + 43200) % 86400 - 43200))
    [ $diff -lt 0 ] && sign=+ && diff=$((-diff))
    printf 'VIRT%s%02d:%02d:%02d' $sign $((diff / 3600)) $((diff / 60 % 60)) $((diff % 60))
}

# move_clock_to HH:MM:SS: the virtual clock of every program of the demo goes there at once. The
# programs see the clock that this script was started with (it may be a faked one), moved by what
# $work/clock says.
move_clock_to() {
    local now
    now=$(date -d "$(virtual_now)" +%s)
    jump=$((jump + $(date -d "$1" +%s) - now))
    set_clock
    sleep 1.5 # until every program has looked at the file again
}
set_clock() {
    printf '%+d\n' $(($(date +%s) - $(env -u LD_PRELOAD date +%s) + jump)) >"$work/clock.new"
    mv "$work/clock.new" "$work/clock"
}
on_virtual_clock=(env -u FAKETIME -u FAKETIME_SHARED
    LD_PRELOAD=libfaketime.so.1 FAKETIME_TIMESTAMP_FILE="$work/clock" FAKETIME_CACHE_DURATION=1
    DONT_FAKE_MONOTONIC=1 FAKETIME_DONT_FAKE_MONOTONIC=1)

# receive NAME CONFIG ARGUMENT...: starts zce-recv in the directory of NAME, its process id in $pid.
receive() {
    local name=$1 config=$2
    shift 2
    mkdir -p "$work/${name%.*}"
    local preloaded=${record:+"$lib/libzce-record.so "}${watch:+"$lib/libzce-watch.so "}
    (cd "$work/${name%.*}" && exec "${on_virtual_clock[@]}" LD_PRELOAD="${preloaded}libfaketime.so.1" \
        ${record:+ZCE_RECORD="$record/$name.pcap" ZCE_RECORD_OVERWRITE=1} ${watch:+ZCE_WATCH="$watch"} "$bin/zce-recv" \
        "$ROOT/examples/config/$config" --print 3 --names "$work/$name.names" "$@") \
        >"$work/$name.log" 2>&1 &
    pid=$!
    processes+=("$pid")
}

# stop_master: what has been sent and what has arrived can only be compared when nothing is under way.
stop_master() {
    kill -STOP $board
    sleep 0.7
    kill -INT "$master"
    wait_end "$master" "the master" 10
    kill -CONT $board
}

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

prepare "" VelaZceMdApi enyx-hw-c zce-board zce-recv zce-record ${watch:+zce-watch zce-watch-preload}

export LD_LIBRARY_PATH="$(dirname "$(find /usr/lib -name libfaketime.so.1 | head -1)")${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
export ZCE_BOARD_SHM_PREFIX="demo$$-"
TZ=$(virtual_zone 08:54:50)
export TZ
set_clock
begin=$(date +%s)
"$bin/zce-board" --bus 0 --products all --list-instruments >"$work/instruments"
total=$(wc -l <"$work/instruments")

say "The virtual day begins: it is $(virtual_now) in Zhengzhou, the call auction is on"
tell "board: a software board on bus 0; its exchange lists $total instruments"
"${on_virtual_clock[@]}" "$bin/zce-board" --bus 0 --products all --seed 1 --rate "$RATE" \
    --feeds "$ROOT/examples/config/feeds.ini" >"$work/board.log" 2>&1 &
board=$!
processes+=($board)
wait_for "$work/board.log" "ready" 10

tell "master: starts on channel 0 (rules: SR, CF, TA with options, and SPD- spreads)"
receive master.1 master.ini
master=$pid
wait_for "$work/master.1.log" "Fpga start transmit inst map pkt." 30
tell "master: the board is reset and set up, every instrument unsubscribed; it now listens to the instrument broadcast"

tell "second: starts on channel 3 (rules: all futures and IPS- spreads, no options)"
receive second.1 channel3.ini --own-loop
second=$pid
wait_for "$work/second.1.log" "Init dma channel :CUSTOM_CHAN3_DATA success." 15

until grep -qF "Call auction time has expired" "$work/master.1.log"; do
    tell "master: has learnt $(grep -c , "$work/master/bin" 2>/dev/null || true) of $total instruments"
    [ $(($(date +%s) - begin)) -lt 60 ] || fail "the call auction did not end"
    kill -0 "$master" 2>/dev/null || fail "the master ended early"
    sleep 3
done
tell "master: the call auction is over; $(sed -n 's/.*totally parse \([0-9]*\) instrumentid.*/\1/p' "$work/master.1.log") records parsed, the cache file is closed"
wait_for "$work/master.1.log" "All channel subs over." 20
tell "master: the rules are applied and written into the board's tables: \"All channel subs over.\""
wait_for "$work/master.1.log" "type=" 10
wait_for "$work/second.1.log" "type=" 10
tell "both: market data arrives; the first messages:"
grep -hE '^zce-recv .*type=' "$work/master.1.log" | head -3 | sed 's/^/            master  /'
grep -hE '^zce-recv .*type=' "$work/second.1.log" | head -3 | sed 's/^/            second  /'
for ((i = 0; i < MARKET_DATA_SECONDS; i += 3)); do
    sleep 3
    tell "board: $(grep '^status' "$work/board.log" | tail -1)"
done

say "The master ends and is started again inside trading time"
stop_master
cp "$work/master/bin" "$work/bin"
move_clock_to 09:01:00
tell "the clock has been moved on: trading has begun. (A master started in the last moments before"
tell "09:00:01 would come too late to learn the list and too early to recover it: docs/operations.md)"
receive master.2 master.ini
master=$pid
wait_for "$work/master.2.log" "Get inst from bin success" 15
tell "master: started again; it keeps the board and gets the list from its cache file"
wait_for "$work/master.2.log" "type=" 15
tell "master: subscribed and receiving again"
sleep 3
stop_master
rm "$work/master/bin"
receive master.3 master.ini
master=$pid
wait_for "$work/master.3.log" "New round, fetch from fpga, inst count:$total." 15
tell "master: started once more without a cache file; it reads the list from the board's own tables"
wait_for "$work/master.3.log" "type=" 15
tell "master: subscribed and receiving again"
sleep 3

[ -z "$watch" ] || "$bin/zce-watch" export --directory "$watch" --output "$watch/zce.prom" ||
    fail "zce-watch export failed"
say "The virtual day ends: the board stops, the receivers drain what is left and end"
kill -INT $board
wait_end $board zce-board 10
sleep 1
kill -INT "$master" "$second"
wait_end "$master" "the master" 10
wait_end "$second" "the second process" 10
processes=()

say "Checking"
# check_run NAME RUN CHANNEL RULES: one run of a receiver against the board's count of the opening.
check_run() {
    local name=$1 run=$2 channel=$3 rules=$4 sent got type file=$work/$1.$2
    sent=$(grep "^opening channel=$channel number=$run " "$work/board.log")
    got=$(grep "^zce-recv channel=$channel " "$file.log" | tail -1)
    [ -n "$sent" ] || fail "the board says nothing of opening $run of channel $channel"
    [ -n "$got" ] || fail "run $run of the receiver of channel $channel printed no last line"
    for type in 17 18 19 20; do
        [ "$(field type$type "$sent")" = "$(field type$type "$got")" ] ||
            fail "channel $channel, run $run, type $type: sent $(field type$type "$sent"), received $(field type$type "$got")"
    done
    [ "$(field total "$got")" -gt 0 ] || fail "channel $channel received nothing in run $run"
    [ "$(field gaps "$got")" = 0 ] || fail "channel $channel has gaps: $got"
    [ "$(field dropped "$sent")" = 0 ] || fail "the board dropped messages of channel $channel: $sent"
    expected "$rules" <"$work/instruments" >"$work/$name.expected"
    cut -d, -f2 "$file.names" | sort >"$file.received"
    comm -13 "$work/$name.expected" "$file.received" >"$file.foreign"
    [ ! -s "$file.foreign" ] || fail "channel $channel got $(head -1 "$file.foreign"), which its rules do not ask for"
    tell "$name, run $run: $(field total "$got") messages, as many as the board sent, type by type; no gap; $(wc -l <"$file.received") instruments seen, each among the $(wc -l <"$work/$name.expected") that the rules ask for"
}
# check_selection CHANNEL NAME: every run of the master selected what the rules of the channel say.
check_selection() {
    local run sgl cmb
    sgl=$(grep -cvE '^(SPD|IPS)-' "$work/$2.expected")
    cmb=$(grep -cE '^(SPD|IPS)-' "$work/$2.expected" || true)
    for run in 1 2 3; do
        grep -qF "[channel:$1] Filter needed sgl count:$sgl, cmb count:$cmb." "$work/master.$run.log" ||
            fail "run $run of the master selected something else for channel $1 than the rules say"
    done
}
check_run master 1 0 "SR CF TA options spd"
check_run master 2 0 "SR CF TA options spd"
check_run master 3 0 "SR CF TA options spd"
check_run second 1 3 "all ips"
check_selection 0 master
check_selection 3 second
for run in 1 2 3; do
    grep -o 'Subscribes:Write to fpga:chanbit:.*' "$work/master.$run.log" | sort >"$work/master.$run.written"
    cmp -s "$work/master.1.written" "$work/master.$run.written" ||
        fail "run $run of the master subscribed other instruments than run 1"
done
tell "master: all three runs subscribed the same $(wc -l <"$work/master.1.written") instruments for the same channels"

tail -c 17 "$work/bin" | grep -qx bin_file_over_tag || fail "the cache file has no end tag"
grep , "$work/bin" | sort >"$work/cached"
awk -F, '{print $1 "," $3}' "$work/instruments" | sort | cmp -s - "$work/cached" ||
    fail "the cache file does not hold the exchange's instruments"
tell "cache file: $total instruments and the end tag"

total_of() { field total "$(grep "^zce-recv channel=$2 " "$work/$1.log" | tail -1)"; }
printf '\ndemo: ok, %s instruments learnt, %s + %s messages received on channels 0 (three runs of the master) and 3, 0 lost, %d s\n' \
    "$total" $(($(total_of master.1 0) + $(total_of master.2 0) + $(total_of master.3 0))) \
    "$(total_of second.1 3)" $(($(date +%s) - begin))

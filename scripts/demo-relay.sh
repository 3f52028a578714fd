#!/usr/bin/env bash
# The demo's morning on another machine: a board and two zce-relay publish on this one, a NATS server
# with JetStream, and on "the other machine" zce-board --relay with two receivers that know nothing
# of it. The server is killed in the middle and started again. What was delivered, caught up and
# counted as lost is told and added up, and what the receivers there polled is compared with what was
# polled here, byte by byte. Installs what is missing (apt), builds what changed, runs for about a
# minute, and ends with "demo-relay: ok ..." or "demo-relay: FAILED: why".
#
#     ./scripts/demo-relay.sh
#
# The other machine is a network namespace of its own where this user may make one (root), else
# loopback; either way its board has shared memory of its own.
if [ $# -ne 0 ]; then
    echo "usage: ./scripts/demo-relay.sh" >&2
    exit 2
fi
source "$(dirname "$0")/common.sh"

RATE=${RATE:-5000}
AWAY_SECONDS=${AWAY_SECONDS:-3}

there=()
namespace=
clean_up() {
    [ -z "$namespace" ] || ip netns del "$namespace" 2>/dev/null || true # and the link with it
    rm -f /dev/shm/here$$-* /dev/shm/there$$-* # killed boards could not
}
demo=demo-relay
source "$ROOT/scripts/demo-common.sh"

tell() { printf '            %s\n' "$*"; }

# start NAME COMMAND...: in the directory of NAME, its process id in $pid.
start() {
    local name=$1
    shift
    mkdir -p "$work/$name"
    (cd "$work/$name" && exec "$@") >"$work/$name.log" 2>&1 &
    pid=$!
    processes+=("$pid")
}
# stop PID NAME STATUS: ends it as Ctrl-C does, with this status.
stop() {
    kill -INT "$1"
    wait_end "$1" "$2" 15 "$3"
}
last() { grep -- "$2" "$work/$1.log" | tail -1; }

# wait_settled NAME NUMBER: until its status line says that so many were received or lost.
wait_settled() {
    local deadline=$(($(date +%s) + 60)) line
    until line=$(grep -E '^(zce-relay )?status ' "$work/$1.log" | tail -1) &&
        [ $(($(field received "$line") + $(field lost "$line"))) -eq "$2" ]; do
        [ "$(date +%s)" -lt $deadline ] || fail "$1 has not got, or missed, the $2 messages that were sent: $line"
        sleep 0.2
    done
}

start_server() {
    start "server.$1" nats-server -a "$address" -p "$port" -js -sd "$work/jetstream"
    server=$pid
    wait_for "$work/server.$1.log" "Server is ready" 10
}

prepare "nats-server iproute2" VelaZceMdApi enyx-hw-c zce-board zce-recv zce-record zce-relay

config=$ROOT/examples/config
faketime=$(find /usr/lib -name libfaketime.so.1 | head -1)
# clocked RECORDING: the environment of a program that has the first board's clock; what it polls is
# recorded to RECORDING, if there is one.
clocked() {
    echo "LD_PRELOAD=${1:+$lib/libzce-record.so:}$faketime ${1:+ZCE_RECORD=$work/$1}" \
        "FAKETIME_TIMESTAMP_FILE=$work/clock FAKETIME_CACHE_DURATION=1" \
        "FAKETIME_DONT_FAKE_MONOTONIC=1 DONT_FAKE_MONOTONIC=1 TZ=CST-8"
}

say "Two machines"
free_port() { python3 -c 'import socket, sys; s = socket.socket(); s.bind((sys.argv[1], 0)); print(s.getsockname()[1])' "$1"; }
# link_machine NET: a network namespace linked to this one, as NET.1 (here) and NET.2 (there).
link_machine() {
    ip netns add "zcedemo$$" 2>/dev/null || return 1
    namespace=zcedemo$$
    ip link add "zced$$" type veth peer name zcethere netns "$namespace" 2>/dev/null &&
        ip address add "$1.1/30" dev "zced$$" && ip link set "zced$$" up &&
        ip -n "$namespace" address add "$1.2/30" dev zcethere &&
        ip -n "$namespace" link set zcethere up
}
# reaches ADDRESS: whether the other machine gets a connection to this one.
reaches() {
    python3 - "$1" "${there[@]}" <<'P'
import socket, subprocess, sys
server = socket.create_server((sys.argv[1], 0))
server.settimeout(3)
connect = "import socket; socket.create_connection(('%s', %d), 3)" % server.getsockname()[:2]
other = subprocess.Popen(sys.argv[2:] + ["python3", "-c", connect], stderr=subprocess.DEVNULL)
sys.exit(other.wait())
P
}
address=127.0.0.1
net=198.18.$((RANDOM % 256)) # of the addresses kept for trying out networks
if ! ip -o address | grep -qF " $net." && link_machine "$net"; then
    there=(ip netns exec "$namespace")
    if reaches "$net.1"; then
        address=$net.1
        tell "the other machine: a network namespace, linked to this one; the server at $address"
    else
        there=()
    fi
fi
[ ${#there[@]} -ne 0 ] ||
    tell "no network namespace may be made here, or none is reached: the other machine is loopback"
port=$(free_port "$address")
url=nats://$address:$port
start_server 1

say "The virtual day begins: it is 08:54:50 in Zhengzhou, the call auction is on"
export ZCE_BOARD_SHM_PREFIX=here$$-
start board.here "$bin/zce-board" --at 08:54:50 --products all --seed 1 --rate "$RATE" \
    --clock-file "$work/clock"
board_here=$pid
wait_for "$work/board.here.log" ready 10
# shellcheck disable=SC2046
start master.here env $(clocked here.0.pcap) "$bin/zce-relay" publish "$config/master.ini" \
    --server "$url" --stream ZCE
master_here=$pid
tell "this machine: a board, and zce-relay publish as its master on channel 0"
wait_for "$work/master.here.log" "Fpga start transmit inst map pkt." 30
# shellcheck disable=SC2046
start second.here env $(clocked here.3.pcap) "$bin/zce-relay" publish "$config/channel3.ini" \
    --server "$url" --stream ZCE --ring 1
second_here=$pid
tell "this machine: zce-relay publish on channel 3, with a ring of 1 MiB, too small for what is to come"
start plain "$bin/zce-relay" subscribe --server "$url" --check
plain=$pid

export ZCE_BOARD_SHM_PREFIX=there$$-
# shellcheck disable=SC2046
start board.there "${there[@]}" env $(clocked) "$bin/zce-board" --relay "$url" --relay-stream ZCE \
    --relay-from-start
board_there=$pid
wait_for "$work/board.there.log" ready 10
# shellcheck disable=SC2046
start master.there "${there[@]}" env $(clocked there.0.pcap) "$bin/zce-recv" "$config/master.ini"
receiver0=$pid
wait_for "$work/master.there.log" "Fpga start transmit inst map pkt." 30
# shellcheck disable=SC2046
start second.there "${there[@]}" env $(clocked there.3.pcap) "$bin/zce-recv" "$config/channel3.ini"
receiver3=$pid
tell "the other machine: zce-board --relay, and zce-recv as its master and on channel 3"

wait_for "$work/master.there.log" "All channel subs over." 60
wait_for "$work/master.there.log" "rate=" 20
tell "the master there has learnt $(grep -c , "$work/master.there/bin") instruments and subscribed; market data arrives on both machines"
sleep 4

say "The server is killed"
kill -KILL $server
{ wait $server || true; } 2>/dev/null
sleep "$AWAY_SECONDS"
tell "this machine:   $(last master.here '^zce-relay status')"
tell "this machine:   $(last second.here '^zce-relay status')"
tell "the other one:  $(last board.there '^status' | grep -o 'relay=.*')"
start_server 2
tell "$AWAY_SECONDS s later it is started again"
wait_for "$work/master.here.log" "connection was lost" 10
sleep 6
tell "the other one:  $(last board.there '^status' | grep -o 'relay=.*')"
start late "${there[@]}" "$bin/zce-relay" subscribe --server "$url" --stream ZCE --from-start --check
late=$pid
tell "somebody who comes late asks the stream for everything"
sleep 3

say "The virtual day ends"
stop $board_here "the board here" 0
sleep 1
stop $master_here "the publisher of channel 0" 0
stop $second_here "the publisher of channel 3" 1 # it has lost some
taken=$(($(field taken "$(last master.here '^zce-relay publish ')") + $(field taken "$(last second.here '^zce-relay publish ')")))
for name in late plain board.there; do
    wait_settled $name $taken
done
stop $late "the late subscriber" 1
stop $plain "the subscriber without the stream" 1
stop $receiver0 "the master there" 0
stop $receiver3 "the second receiver there" 0
stop $board_there "the board there" 0
processes=("$server")

say "Checking"
# The messages 17 to 20 of a recording, a line of hexadecimal digits each.
cat >"$work/bodies.py" <<'P'
import struct, sys
data = open(sys.argv[1], "rb").read()
at = 24
while at < len(data):
    size = struct.unpack_from("<I", data, at + 8)[0]
    message = data[at + 32 : at + 16 + size]
    if data[at + 17] == 1 and 17 <= struct.unpack_from("<I", message)[0] <= 20:
        print(message.hex())
    at += 16 + size
P
# check_sum WHAT WANTED PARTS...
check_sum() {
    local what=$1 wanted=$2 part sum=0
    shift 2
    for part in "$@"; do
        sum=$((sum + part))
    done
    [ -n "$wanted" ] && [ "$sum" -eq "$wanted" ] || fail "$what: $sum, not $wanted"
}
# check_channel CHANNEL PUBLISHER RECEIVER
check_channel() {
    local channel=$1 sent took gave opening got line name
    sent=$(field total "$(last board.here "^opening channel=$channel number=1 ")")
    took=$(last "$2" "^zce-relay publish ")
    gave=$(last board.there "^relay channel=$channel ")
    opening=$(last board.there "^opening channel=$channel number=1 ")
    got=$(last "$3" "^zce-recv channel=$channel ")
    [ "$(field total "$got")" -gt 0 ] || fail "channel $channel: nothing arrived there"
    check_sum "channel $channel: taken by the publisher" "$sent" "$(field taken "$took")"
    check_sum "channel $channel: confirmed, and lost in a full ring" "$sent" \
        "$(field confirmed "$took")" "$(field ring-full "$took")"
    check_sum "channel $channel: received there, and counted as lost" "$sent" \
        "$(field received "$gave")" "$(field lost "$gave")"
    check_sum "channel $channel: lost there" "$(field ring-full "$took")" "$(field lost "$gave")"
    check_sum "channel $channel: the callbacks there" "$(field received "$gave")" "$(field total "$got")"
    check_sum "channel $channel: dropped there" 0 "$(field dropped "$opening")"
    check_sum "channel $channel: gaps that the receiver there saw" "$(field ring-full "$took")" \
        "$(field gaps "$got")"
    for name in late plain; do
        line=$(last $name "^zce-relay subscribe bus=0 channel=$channel ")
        check_sum "channel $channel: the $name subscriber's received and lost" "$sent" \
            "$(field received "$line")" "$(field lost "$line")"
    done
    line=$(last late "^zce-relay subscribe bus=0 channel=$channel ")
    check_sum "channel $channel: missing in the stream" "$(field ring-full "$took")" "$(field lost "$line")"
    python3 "$work/bodies.py" "$work/here.$channel.pcap" >"$work/here.$channel"
    python3 "$work/bodies.py" "$work/there.$channel.pcap" >"$work/there.$channel"
    [ "$(wc -l <"$work/here.$channel")" -eq "$sent" ] || fail "channel $channel: the recording here is not whole"
    # What is there is what was here, in the same order, but for as many as were counted as lost.
    diff "$work/here.$channel" "$work/there.$channel" >"$work/diff.$channel" || true
    ! grep -q '^>' "$work/diff.$channel" || fail "channel $channel: a message arrived there that was not sent here so, or then"
    [ "$(grep -c '^<' "$work/diff.$channel" || true)" -eq "$(field ring-full "$took")" ] ||
        fail "channel $channel: other messages are missing there than those counted as lost"
    tell "channel $channel: $sent sent = $(field total "$got") delivered there + $(field lost "$gave") counted as lost in the full ring; $(field resent "$took") sent once more, $(field duplicates "$gave") of them known there already; every byte as it was polled here"
    line=$(last plain "^zce-relay subscribe bus=0 channel=$channel ")
    tell "           without the stream: $(field received "$line") delivered + $(field lost "$line") counted as lost"
}
check_channel 0 master.here master.there
check_channel 3 second.here second.there
[ "$(field ring-full "$(last second.here '^zce-relay publish ')")" -gt 0 ] ||
    fail "the small ring was large enough: nothing was shown of losses"
grep -q "connection was lost" "$work/board.there.log" || fail "the board there did not tell that the server went"
[ "$(grep -c ": connected" "$work/board.there.log")" -eq 2 ] || fail "the board there did not tell twice that it is connected"
grep , "$work/master.here/bin" | sort >"$work/bin.here"
grep , "$work/master.there/bin" | sort | cmp -s - "$work/bin.here" ||
    fail "the master there has not learnt the same instruments"
tell "both masters have learnt the same $(wc -l <"$work/bin.here") instruments"

total=0
lost=0
for name in master second; do
    channel=$([ $name = master ] && echo 0 || echo 3)
    total=$((total + $(field total "$(last $name.there "^zce-recv channel=$channel ")")))
    lost=$((lost + $(field ring-full "$(last $name.here '^zce-relay publish ')")))
done
printf '\ndemo-relay: ok, %s messages delivered on the other machine through a killed server, %s counted as lost, none missing beside them\n' \
    "$total" "$lost"

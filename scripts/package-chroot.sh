#!/usr/bin/env bash
# package-chroot.sh [FOLDER]: tries the Debian packages of build/packages (scripts/package.sh) on a fresh
# Debian 12, from the .deb files alone: makes one with debootstrap in FOLDER (default: build/chroot, made
# and removed here), installs the packages step by step, builds the examples with both compilers, plays
# each example scenario to a receiver as an ordinary user, looks which library the loader takes, and
# removes the packages again. As root; some minutes. MIRROR is where Debian comes from, by default
# http://deb.debian.org/debian. Ends with "package-chroot: ok ..." or "package-chroot: FAILED: why".
source "$(dirname "$0")/common.sh"

folder=${1:-$ROOT/build/chroot}
mirror=${MIRROR:-http://deb.debian.org/debian}
[ "$(id -u)" -eq 0 ] || { echo "package-chroot: only root can make a fresh Debian"; exit 2; }
[ -n "$(ls build/packages/*.deb 2>/dev/null)" ] || { echo "package-chroot: no packages: scripts/package.sh first"; exit 2; }
if [ -e "$folder" ] && [ -n "$(ls -A "$folder")" ]; then
    echo "package-chroot: $folder is not empty"
    exit 2
fi
need debootstrap
why="stopped early"
started=$(date +%s)
finish() {
    local status=$? mount
    for mount in dev/shm proc; do
        mountpoint -q "$folder/$mount" && umount "$folder/$mount"
    done
    if mountpoint -q "$folder/proc" || mountpoint -q "$folder/dev/shm"; then
        echo "package-chroot: $folder is still mounted and stays"
    else
        rm -rf --one-file-system "$folder"
    fi
    [ $status -eq 0 ] || echo "package-chroot: FAILED: $why"
    exit $status
}
trap finish EXIT
trap 'exit 130' INT TERM
fail() {
    why=$1
    exit 1
}
inside() { chroot "$folder" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C DEBIAN_FRONTEND=noninteractive "$@"; }
as_user() { chroot --userspec=trader:trader "$folder" /usr/bin/env -i PATH=/usr/bin:/bin HOME=/home/trader LC_ALL=C sh -ec "cd; $1"; }
# quiet COMMAND...: its output only if it fails.
quiet() { "$@" >"$folder/output" 2>&1 || { tail -n 30 "$folder/output"; return 1; }; }
install_packages() { quiet inside apt-get install -y --no-install-recommends "$@"; }

say "A fresh Debian 12"
why="debootstrap"
mkdir -p "$folder"
debootstrap --variant=minbase bookworm "$folder" "$mirror" >build/debootstrap.log 2>&1 || { tail build/debootstrap.log; fail debootstrap; }
rm -f build/debootstrap.log
mount -t proc proc "$folder/proc"
mkdir -p "$folder/dev/shm"
mount -t tmpfs tmpfs "$folder/dev/shm"
# The manual pages are installed here, unlike in a container.
rm -f "$folder"/etc/dpkg/dpkg.cfg.d/docker*
for file in /etc/apt/apt.conf.d/*proxy*; do
    [ ! -f "$file" ] || cp "$file" "$folder/etc/apt/apt.conf.d/"
done
quiet inside apt-get update
quiet inside useradd -m trader
mkdir "$folder/packages"
cp build/packages/*.deb "$folder/packages"
packages() { (cd "$folder" && ls packages/"$1"_*.deb | sed 's#^#/#'); }

say "The library alone"
why="libvelazcemdapi3"
install_packages "$(packages libvelazcemdapi3)"
loader() { inside ldd "$1" | sed -n 's/.*libenyx-hw-c.so.5 => \([^(]*[^( ]\).*/\1/p'; }
[ "$(loader /usr/lib/libVelaZceMdApi.so.3)" = "not found" ] || fail "the library finds a vendor's library where there is none"

say "Its development files; an application, without the board's library"
why="libvelazcemdapi-dev"
install_packages "$(packages libvelazcemdapi-dev)" "$(packages velazcemdapi-doc)" g++ clang cmake make pkg-config
why="an application does not build without the board's library"
as_user 'cp /usr/share/doc/VelaZceMdApi/examples/minimal.cpp main.cpp
    g++ -std=c++11 main.cpp -o early $(pkg-config --cflags --libs velazcemdapi) 2>/dev/null
    rm early'

say "The software board and the programs"
why="velazcemdapi-board"
install_packages "$(packages velazcemdapi-board)" libfaketime bash-completion man-db libiniparser-dev
[ "$(loader /usr/lib/libVelaZceMdApi.so.3)" = "not found" ] || fail "the library finds the software board by accident"
[ "$(loader /usr/bin/zce-recv)" = /usr/bin/../lib/zce-board/libenyx-hw-c.so.5 ] || fail "zce-recv does not find the software board"
for program in $(inside dpkg -L velazcemdapi-board | sed -n 's#^/usr/bin/##p'); do
    why="$program does not run, or has no manual page"
    quiet as_user "$program --help"
    quiet as_user "man $program"
done
why="manual pages"
for page in velazcemdapi zce-board-ctl VelaZceMdApi zce-config zce-record; do quiet as_user "man $page"; done
why="completion"
[ "$(inside bash -c '. /usr/share/bash-completion/bash_completion; _completion_loader zce-top
    COMP_WORDS=(zce-top --on); COMP_CWORD=1; _zce_top; echo "${COMPREPLY[@]}"')" = --once ] || fail "no completion of zce-top"

say "Every example, with g++ as C++11 and clang as C++20; one with CMake"
why="an example does not build"
as_user 'mkdir -p built
    cp -r /usr/share/doc/VelaZceMdApi/examples .
    for source in examples/*.cpp examples/recv; do
        files=$source
        [ ! -d $source ] || files=$source/*.cpp
        libraries=
        ! grep -q iniparser.h $files || libraries="-I/usr/include/iniparser -liniparser"
        name=$(basename $source .cpp)
        g++ -std=c++11 -O2 -Wall -Wextra -Werror -pthread $files -o built/$name-g++ $(pkg-config --cflags --libs velazcemdapi) $libraries
        clang++ -std=c++20 -O2 -Wall -Wextra -Werror -pthread $files -o built/$name-clang++ $(pkg-config --cflags --libs velazcemdapi) $libraries
        echo "   $source"
    done
    mkdir app && cd app
    cp ../examples/minimal.cpp main.cpp
    cat >CMakeLists.txt <<CMAKE
cmake_minimum_required(VERSION 3.16)
project(app LANGUAGES CXX)
find_package(VelaZceMdApi 3.10 REQUIRED)
add_executable(app main.cpp)
target_link_libraries(app PRIVATE VelaZceMdApi::VelaZceMdApi)
CMAKE
    cmake -S . -B build >/dev/null
    cmake --build build >/dev/null
    cp build/app ../built/minimal-cmake'

say "An application on the software board"
why="an application does not run with zce-board-run"
as_user '{ sed "/^\[channel/,\$d" examples/config/master.ini
      printf "[channel0]\ninsts = all\noptions = recv\nips = recv\nspd = recv\n"; } >all.ini
    for program in built/minimal-*; do
        if $program all.ini >out 2>&1; then echo "$program starts without a library of the board"; exit 1; fi
        zce-board-run $program all.ini >out 2>&1 || { cat out; exit 1; }
        grep -q "Init New drive failed! ret:-1" out || { cat out; exit 1; }
    done'

say "Each example scenario, played to a receiver"
# play SCENARIO SECONDS: nothing that was received has a gap in front of it. (What the board sends while
# the receiver ends is not received.)
play() {
    local sent got
    why="the scenario $1"
    quiet as_user "rm -f bin; timeout 120 zce-board --scenario examples/scenarios/$1 -- \
        zce-recv all.ini --own-loop --nap 200 --seconds $2 >out 2>&1 || { tail -n 20 out; exit 1; }"
    sent=$(sed -n 's/^opening channel=0 .* total=\([0-9]*\) dropped=0 .*/\1/p' "$folder/home/trader/out" | tail -n 1)
    got=$(sed -n 's/^zce-recv channel=0 total=\([0-9]*\) .* gaps=0\( .*\)*$/\1/p' "$folder/home/trader/out" | tail -n 1)
    printf '   %-18s %s sent, %s received\n' "$1" "$sent" "$got"
    [ "${got:-0}" -gt 1000 ] && [ "$got" -le "${sent:-0}" ] && [ $((sent - got)) -lt 1000 ] ||
        { tail -n 5 "$folder/home/trader/out"; fail "the scenario $1"; }
}
for scenario in $(cd "$folder/home/trader/examples/scenarios" && ls -- *.ini); do
    play "$scenario" 25
done

say "A session that is watched and recorded, and what looks at the recording"
why="watching and recording"
quiet as_user 'rm -rf bin pages day && mkdir pages
    ZCE_WATCH=$HOME/pages ZCE_RECORD="$HOME/day/%Y%m%d/%c-%H%M%S.pcap.zst" \
        LD_PRELOAD="/usr/lib/zce-board/libzce-watch.so /usr/lib/zce-board/libzce-record.so" \
        timeout 120 zce-board --scenario examples/scenarios/bursts.ini -- \
        zce-recv all.ini --own-loop --nap 200 --seconds 25 >out 2>&1 || { tail -n 20 out; exit 1; }
    zce-watch list --directory pages
    zce-watch export --directory pages >pages.prom
    zce-top --watch pages --once
    zce-capture info --json day/*/0-*.pcap.zst >info.json
    zce-capture export --csv day/*/0-*.pcap.zst --output day.csv
    zce-capture verify day/*/0-*.pcap.zst'
got=$(sed -n 's/^zce-recv channel=0 total=\([0-9]*\) .*/\1/p' "$folder/home/trader/out" | tail -n 1)
counted=$(awk '/^zce_messages_total\{.*type="(17|18|19|20)"/ { sum += $NF } END { print sum + 0 }' "$folder/home/trader/pages.prom")
recorded=$(awk -F, '$9 >= 17 && $9 <= 20' "$folder/home/trader/day.csv" | wc -l)
printf '   %s received, %s counted, %s recorded\n' "$got" "$counted" "$recorded"
[ "${got:-0}" -gt 1000 ] && [ "$counted" = "$got" ] && [ "$recorded" = "$got" ] || fail "$why"

say "Through a NATS server"
why="nats-server"
install_packages nats-server
why="the relay"
quiet as_user 'rm -f bin
    /usr/sbin/nats-server -a 127.0.0.1 -p 14222 >nats 2>&1 & nats=$!
    trap "kill $nats" EXIT
    zce-relay subscribe --server nats://127.0.0.1:14222 --capture there.pcap --seconds 45 >subscriber 2>&1 & subscriber=$!
    sleep 1
    timeout 120 zce-board --scenario examples/scenarios/bursts.ini -- \
        timeout --foreground -s INT 25 zce-relay publish all.ini --server nats://127.0.0.1:14222 --nap 200 >publisher 2>&1 || true
    wait $subscriber || { tail publisher subscriber; exit 1; }
    zce-capture verify there.pcap || true
    zce-capture export --csv there.pcap --output there.csv'
arrived=$(($(wc -l <"$folder/home/trader/there.csv") - 1))
taken=$(sed -n 's/^zce-relay .* taken=\([0-9]*\) .*/\1/p' "$folder/home/trader/publisher" | tail -n 1)
printf '   %s taken, %s arrived\n' "$taken" "$arrived"
[ "$arrived" -gt 1000 ] && [ "$arrived" = "$taken" ] || fail "$why"

say "A library of the board's vendor is installed: applications take it, and the programs when told"
why="the vendor's library"
cp tests/system/stubEnyx.c "$folder/root/stub.c"
inside sh -ec 'gcc -shared -fPIC -fvisibility=default -w -Wl,-soname,libenyx-hw-c.so.5 /root/stub.c -o /usr/local/lib/libenyx-hw-c.so.5
    ldconfig'
[ "$(loader /home/trader/built/minimal-g++)" = /usr/local/lib/libenyx-hw-c.so.5 ] || fail "an application does not take the vendor's library"
[ "$(inside env LD_LIBRARY_PATH=/usr/local/lib ldd /usr/bin/zce-recv | sed -n 's/.*libenyx-hw-c.so.5 => \([^ ]*\).*/\1/p')" = /usr/local/lib/libenyx-hw-c.so.5 ] ||
    fail "zce-recv does not take the vendor's library"
[ "$(inside zce-board-run ldd /home/trader/built/minimal-g++ | sed -n 's/.*libenyx-hw-c.so.5 => \([^ ]*\).*/\1/p')" = /usr/lib/zce-board/libenyx-hw-c.so.5 ] ||
    fail "zce-board-run does not choose the software board"

say "The packages are removed"
why="removal"
names="libvelazcemdapi3 libvelazcemdapi-dev velazcemdapi-board velazcemdapi-doc"
# shellcheck disable=SC2086
quiet inside apt-get purge -y $names
left=$(inside find /usr /etc /var/lib/dpkg/info -iname '*velazce*' -o -path /usr/share/doc -prune -o -name 'zce-*' -print)
[ -z "$left" ] || fail "these stay: $left"
why=
printf '\npackage-chroot: ok, in %d s\n' $(($(date +%s) - started))

#!/usr/bin/env bash
# install.sh BUILD SOURCE VENDOR: installs the build into an empty tree, then builds a small C++11
# application against that tree, with its CMake package and with its pkg-config file, with and without
# the software board in the tree, and runs what is installed and what was built. VENDOR is a library
# that bears the name of the board vendor's. At the end everything is removed again.
set -euo pipefail
build=$1
source=$2
vendor=$3
export LC_ALL=C
unset LD_LIBRARY_PATH
work=$(mktemp -d)
# What a person has installed from this build folder can be removed by the target uninstall: its list
# stays as it was.
list=$build/install_manifest.txt
[ ! -e "$list" ] || cp -p "$list" "$work/manifest"
trap 'if [ -e "$work/manifest" ]; then cp -p "$work/manifest" "$list"; else rm -f "$list"; fi; rm -rf "$work"' EXIT
fail() { echo "$*"; exit 1; }

cmake --install "$build" --prefix "$work/tree" >"$work/install.log"
libdir=$(dirname "$(find "$work/tree" -name 'libVelaZceMdApi.so.3')")
doc=share/doc/VelaZceMdApi
for file in include/IVelaZceMdApi.h include/VelaZceUtils.h include/VelaZceExport.h \
    include/ZceBoardMsg.h include/ZceBoardState.h include/ZceCapture.h \
    bin/zce-board bin/zce-board-run bin/zce-recv bin/zce-top bin/zce-bin bin/zce-capture bin/zce-check bin/zce-watch share/zce-board/zce.lua \
    share/man/man1/zce-board.1.gz share/man/man1/zce-board-ctl.1.gz share/man/man1/zce-board-run.1.gz \
    share/man/man1/zce-recv.1.gz share/man/man1/zce-top.1.gz share/man/man3/VelaZceMdApi.3.gz \
    share/man/man5/zce-config.5.gz share/man/man7/velazcemdapi.7.gz share/man/man7/zce-record.7.gz share/man/man7/zce-watch.7.gz \
    share/bash-completion/completions/zce-board \
    $doc/README.md $doc/CHANGELOG.md $doc/CONTRIBUTING.md $doc/LICENSE $doc/docs/configuration.md \
    $doc/examples/minimal.cpp $doc/examples/config/master.ini $doc/examples/scenarios/small.txt $doc/examples/monitoring/zce-rules.yml; do
    [ -f "$work/tree/$file" ] || fail "$file is not installed"
done
[ -f "$libdir/zce-board/libzce-record.so" ] || fail "the recorder is not installed"
[ -f "$libdir/zce-board/libzce-watch.so" ] || fail "the watch is not installed"
[ "$(readlink "$libdir/libVelaZceMdApi.so")" = libVelaZceMdApi.so.3 ]
[ "$(readlink "$libdir/libVelaZceMdApi.so.3")" = libVelaZceMdApi.so.3.10.0 ]

mkdir "$work/app"
cp "$source/examples/minimal.cpp" "$work/app/main.cpp"
cat >"$work/app/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.16)
project(app LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 11)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
find_package(VelaZceMdApi 3.10 REQUIRED)
add_executable(app main.cpp)
target_compile_options(app PRIVATE -Wall -Wextra -Wpedantic -Werror)
target_link_libraries(app PRIVATE VelaZceMdApi::VelaZceMdApi)
CMAKE
build_apps() { # build_apps NAME: $work/NAME/app by the CMake package, $work/NAME/plain by pkg-config
    cmake -S "$work/app" -B "$work/$1" -DCMAKE_PREFIX_PATH="$work/tree" >"$work/cmake.log" 2>&1 ||
        { cat "$work/cmake.log"; exit 1; }
    cmake --build "$work/$1" >"$work/build.log" 2>&1 || { cat "$work/build.log"; exit 1; }
    PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --exact-version=3.10.0 velazcemdapi
    # shellcheck disable=SC2046
    g++ -std=c++11 -pedantic -Wall -Wextra -Werror "$work/app/main.cpp" -o "$work/$1/plain" \
        $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs velazcemdapi) \
        2>"$work/build.log" || { cat "$work/build.log"; exit 1; }
}
build_apps whole
for compiler in "g++ -std=c++11" "g++ -std=c++20" "clang++ -std=c++11" "clang++ -std=c++20"; do
    # shellcheck disable=SC2046
    $compiler -fsyntax-only -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Werror "$work/app/main.cpp" \
        $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags velazcemdapi)
done
# The lines of examples/README.md, where the examples are installed.
(
    cd "$work/tree/$doc/examples"
    grep '^g++ .*velazcemdapi' README.md >"$work/lines"
    PKG_CONFIG_PATH="$libdir/pkgconfig" sh -e "$work/lines"
    for example in minimal zce-recv strategy-ring channels; do
        [ -x "$example" ] || fail "examples/README.md does not build $example"
        rm "$example"
    done
)

# loaded PROGRAM: the libenyx-hw-c.so.5 that it gets.
loaded() { LD_TRACE_LOADED_OBJECTS=1 "$@" | sed -n 's/.*libenyx-hw-c.so.5 => \([^(]*[^( ]\).*/\1/p'; }
board=$libdir/zce-board/libenyx-hw-c.so.5
mkdir "$work/vendor"
cp "$vendor" "$work/vendor/libenyx-hw-c.so.5"
ours() { [ "$(readlink -f "$1")" = "$(readlink -f "$board")" ]; }
[ -z "$(readelf -d "$libdir/libVelaZceMdApi.so" | grep -E 'R(UN)?PATH')" ] ||
    fail "the library has a run path: it could load the software board in place of the vendor's library"
[ "$(loaded "$work/whole/app")" = "not found" ] || fail "an application finds the software board by accident"
ours "$(loaded "$work/tree/bin/zce-recv")" || fail "zce-recv does not find the software board"
for program in whole/app tree/bin/zce-recv; do
    [ "$(LD_LIBRARY_PATH=$work/vendor loaded "$work/$program")" = "$work/vendor/libenyx-hw-c.so.5" ] ||
        fail "$program does not get the vendor's library"
done

# Without a board a start ends the process, with the library's own words.
export ZCE_BOARD_SHM_PREFIX="install$$-"
printf '[config]\ndevice = xilinx0:0\n' >"$work/config.ini"
run() {
    (cd "$work" && "$@" config.ini) >"$work/output" 2>&1 || { cat "$work/output"; fail "$* failed"; }
    grep -q 'Init New drive failed! ret:-1' "$work/output" || { cat "$work/output"; fail "$* ended otherwise"; }
}
run "$work/tree/bin/zce-recv"
run "$work/tree/bin/zce-board-run" "$work/whole/app"
"$work/tree/bin/zce-board-run" -- true
status=0
"$work/tree/bin/zce-board-run" --bogus true 2>"$work/output" || status=$?
[ $status -eq 2 ] || fail "zce-board-run --bogus: status $status"
grep -qx 'zce-board-run: --bogus: no such option; --help tells more' "$work/output"
run "$work/tree/bin/zce-board-run" "$work/whole/plain"
for program in zce-board zce-top; do
    "$work/tree/bin/$program" --help >"$work/output" || { cat "$work/output"; fail "$program does not run"; }
done

# No libenyx-hw-c.so.5 far and wide: an application links all the same.
mv "$libdir/zce-board" "$work/aside"
build_apps bare
[ "$(loaded "$work/bare/plain")" = "" ] || [ "$(loaded "$work/bare/plain")" = "not found" ]
status=0
"$work/tree/bin/zce-board-run" true 2>"$work/output" || status=$?
[ $status -eq 2 ] || fail "zce-board-run without a software board: status $status"
grep -q '^zce-board-run: .*/zce-board/libenyx-hw-c.so.5 is not there$' "$work/output"
mv "$work/aside" "$libdir/zce-board"

# uninstall leaves nothing but what is not its own, and of the machine's own tree the folders of others.
touch "$work/tree/include/theirs.h"
uninstall() { cmake --build "$build" --target uninstall >"$work/output" || { cat "$work/output"; exit 1; }; }
uninstall
[ "$(cd "$work/tree" && find . | sort | tr '\n' ' ')" = ". ./include ./include/theirs.h " ] ||
    { find "$work/tree"; fail "uninstall has left something"; }
export DESTDIR=$work/machine
cmake --install "$build" --prefix /usr/local >"$work/install.log"
[ -x "$work/machine/usr/local/bin/zce-board-run" ]
uninstall
[ -z "$(find "$work/machine" ! -type d)" ] && [ -d "$work/machine/usr/local/share/man/man1" ] &&
    [ -z "$(find "$work/machine" -name VelaZceMdApi -o -name zce-board)" ] ||
    { find "$work/machine"; fail "uninstall has left something, or taken too much"; }

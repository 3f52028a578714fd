#!/usr/bin/env bash
# install.sh BUILD SOURCE: installs the build into an empty tree, then builds a small C++11
# application against that tree, once with its CMake package and once with its pkg-config file, and
# runs both.
set -euo pipefail
build=$1
source=$2
export LC_ALL=C
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/tree" >"$work/install.log"
libdir=$(dirname "$(find "$work/tree" -name 'libVelaZceMdApi.so.3')")
for file in include/IVelaZceMdApi.h include/VelaZceUtils.h include/ZceBoardMsg.h \
    include/ZceCapture.h bin/zce-board bin/zce-top bin/zce-bin bin/zce-check share/zce-board/zce.lua; do
    [ -f "$work/tree/$file" ] || { echo "$file is not installed"; exit 1; }
done
[ -f "$libdir/zce-board/libzce-record.so" ] || { echo "the recorder is not installed"; exit 1; }
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
cmake -S "$work/app" -B "$work/app/build" -DCMAKE_PREFIX_PATH="$work/tree" >"$work/cmake.log" ||
    { cat "$work/cmake.log"; exit 1; }
cmake --build "$work/app/build" >"$work/build.log" 2>&1 || { cat "$work/build.log"; exit 1; }

PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --exact-version=3.10.0 velazcemdapi
# shellcheck disable=SC2046
g++ -std=c++11 -pedantic -Wall -Wextra -Werror "$work/app/main.cpp" -o "$work/app/plain" \
    $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs velazcemdapi)

export LD_LIBRARY_PATH="$libdir:$libdir/zce-board"
export ZCE_BOARD_SHM_PREFIX="install$$-"
for app in "$work/app/build/app" "$work/app/plain"; do
    # Without a board the start ends the process, with the library's own words.
    printf '[config]\ndevice = xilinx0:0\n' >"$work/config.ini"
    (cd "$work" && "$app" config.ini) >"$work/output" || { echo "$app failed"; cat "$work/output"; exit 1; }
    grep -q 'Init New drive failed! ret:-1' "$work/output" || { cat "$work/output"; exit 1; }
done

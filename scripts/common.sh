# Shared by the scripts of this folder; sourced, not run.
# shellcheck shell=bash

set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$ROOT"
export LC_ALL=C

# What a build needs, and what the tests need on top, as Debian 12 names it.
BUILD_PACKAGES=(g++ cmake ninja-build libiniparser-dev libcli11-dev libfmt-dev
                libpcap-dev libboost-dev libgtest-dev libgmock-dev libbenchmark-dev
                libncurses-dev nlohmann-json3-dev python3 valgrind faketime
                libzstd-dev libxxhash-dev libnats-dev libatomic-queue-dev libreaderwriterqueue-dev libiceoryx-posh-dev iceoryx libspdlog-dev)
TEST_PACKAGES=(clang-14 lld clang-tidy clang-format libclang-rt-14-dev faketime strace binutils
               pkg-config make git procps tmux tshark gnuplot-nox
               abigail-tools cppcheck doxygen
               dpkg-dev file lintian man-db mandoc
               prometheus nats-server openssl iproute2 xxhash zstd systemd logrotate)
# For the plots.
BENCH_PACKAGES=(gnuplot-nox git)

say() { printf '\n== %s\n' "$*"; }

# need PACKAGE...: installs those that are missing.
need() {
    local missing=() package
    for package in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "Installing ${missing[*]}"
    local sudo=
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "These packages are missing and only root can install them: ${missing[*]}"; return 1; }
        sudo=sudo
    fi
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# configure PRESET: once, and again when the presets have changed (CMake itself watches its other files).
configure() {
    [ "build/$1/build.ninja" -nt CMakePresets.json ] && return 0
    local log
    log=$(mktemp)
    if ! cmake --preset "$1" >"$log" 2>&1; then
        cat "$log"
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
    touch "build/$1/build.ninja"
}

# build PRESET [TARGET...]: configures what is not, and builds what changed.
build() {
    local preset=$1
    shift
    configure "$preset" || return 1
    if [ $# -gt 0 ]; then
        cmake --build --preset "$preset" --target "$@"
    else
        cmake --build --preset "$preset"
    fi
}

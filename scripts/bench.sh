#!/usr/bin/env bash
# The benchmarks (Release): what a delivered message and an idle poll cost through VelaRecv, beside
# the vendor's bare poll. The ratio counts, not the nanoseconds.
source "$(dirname "$0")/common.sh"
need "${BUILD_PACKAGES[@]}"
build release recv_bench
build/release/bin/recv_bench "$@"

#!/usr/bin/env bash
# bench.sh [--check] [OPTION...]
#
# The benchmarks (Release), then all ratios once more: what VelaRecv costs beside the vendor's bare
# poll, and messages a second and a message's way from the board to the callback, beside a lock-free
# queue and UDP. The ratios count, not the nanoseconds; docs/benchmarks.md says how to read them.
# With --check the exit status is 1 if a ratio misses its bound. OPTIONs go to each benchmark
# (--benchmark_repetitions=50).
source "$(dirname "$0")/common.sh"

check=false
options=()
for option in "$@"; do
    case $option in
        --check) check=true ;;
        *) options+=("$option") ;;
    esac
done

need "${BUILD_PACKAGES[@]}"
benches=(recv_bench throughput_bench latency_bench)
build release "${benches[@]}"
output=$(mktemp)
trap 'rm -f "$output"' EXIT
for bench in "${benches[@]}"; do
    say "$bench"
    # Without the log of the library, which writes to standard output as well.
    "build/release/bin/$bench" ${options[@]+"${options[@]}"} |
        { grep -vE '^(\x1b\[[0-9;]*m)*\[(INFO|WARN) ' || true; } | tee -a "$output"
done

say "All ratios"
kept=true
sed -n 's/^ratio //p' "$output" | awk '
    { miss = ($3 == "at-least" && $2 + 0 < $4 + 0) || ($3 == "at-most" && $2 + 0 > $4 + 0)
      printf "%-32s %8.2f  %-9s %5s  %s\n", $1, $2, $3, $4, $3 == "" ? "" : miss ? "MISSED" : "ok"
      missed += miss }
    END { exit missed + 0 > 0 }' || kept=false
$kept && printf '\nbench: ok, every bound is kept\n' || printf '\nbench: a bound is MISSED\n'
! $check || $kept

#!/usr/bin/env bash
# bench.sh [--check] [OPTION...]
#
# The benchmarks (Release): what the library costs beside the vendor's bare poll, beside plain loops of
# the same calls, beside queues, UDP and another log. Ends with all ratios and their bounds; the ratios
# count, not the nanoseconds (docs/performance.md says how to read them). Without --check the figures and
# plots of docs/performance.md are made anew from the run; with it nothing is written, and the exit status
# is 1 if a figure misses its bound. OPTIONs go to each benchmark (--benchmark_repetitions=50).
# ZCE_BENCH_JITTER=SECONDS: how long the histogram of jitter is gathered (60).
source "$(dirname "$0")/common.sh"

check=false
options=()
for option in "$@"; do
    case $option in
        --check) check=true ;;
        *) options+=("$option") ;;
    esac
done

need "${BUILD_PACKAGES[@]}" "${BENCH_PACKAGES[@]}"
benches=(live recv start selection learn log throughput latency sizes preload capture relay jitter)
build release "${benches[@]/%/_bench}" instruction_bench
mkdir -p build/bench
output=build/bench/output.txt
: >"$output"

# Without the log of the library, which writes to standard output as well.
collect() { { grep -vE '^(\x1b\[[0-9;]*m)*\[(INFO|WARN|ERROR) ' || true; } | tee -a "$output"; }

say "instructions"
scripts/instructions.sh | collect || true # a missed bound is told with the others
for bench in "${benches[@]}"; do
    say "$bench"
    own=()
    [ "$bench" != jitter ] || own=(--seconds "${ZCE_BENCH_JITTER:-60}")
    "build/release/bin/${bench}_bench" "${own[@]}" ${options[@]+"${options[@]}"} | collect
done

say "All ratios"
kept=true
sed -n 's/^ratio //p' "$output" | awk '
    { miss = ($3 == "at-least" && $2 + 0 < $4 + 0) || ($3 == "at-most" && $2 + 0 > $4 + 0)
      printf "%-36s %8.2f  %-9s %5s  %s\n", $1, $2, $3, $4, $3 == "" ? "" : miss ? "MISSED" : "ok"
      missed += miss }
    END { exit missed + 0 > 0 }' || kept=false
$check || python3 -B scripts/bench/page.py "$output" docs/performance.md docs/performance
$kept && printf '\nbench: ok, every bound is kept\n' || printf '\nbench: a bound is MISSED\n'
! $check || $kept

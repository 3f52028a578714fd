#!/usr/bin/env bash
# Feeds the fuzz targets (fuzz/, libFuzzer) for a time each, five for two processors at once. What they
# find out about the code is kept in build/fuzz/corpus and is where the next run begins. Ends with one
# line; exit status 1 if an input broke a target, which is then named.
# Usage: scripts/fuzz.sh HOURS [TARGET...]        hours for each target, 0.5 too
#        scripts/fuzz.sh --seconds N [TARGET...]  always with the same random numbers
source "$(dirname "$0")/common.sh"

usage() { sed -n '2,8s/^# \{0,1\}//p' "$0" >&2; exit 2; }

AT_ONCE=$((5 * $(nproc) / 2))
random=-seed=0 # one of the clock's
case ${1:-} in
    --seconds) [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || usage; seconds=$2; random=-seed=1; shift 2 ;;
    *) [[ ${1:-} =~ ^[0-9]*\.?[0-9]+$ ]] || usage
       seconds=$(awk -v hours="$1" 'BEGIN { printf "%d", hours * 3600 }'); shift ;;
esac
[ "$seconds" -gt 0 ] || usage

mapfile -t all < <(sed -n 's/^velazce_fuzz(\([a-zA-Z0-9]*\) .*/\1/p' fuzz/CMakeLists.txt)
targets=("$@")
[ $# -gt 0 ] || targets=("${all[@]}")
for target in "${targets[@]}"; do
    [[ " ${all[*]} " == *" $target "* ]] || { echo "fuzz: no target $target; there are: ${all[*]}" >&2; exit 2; }
done

need "${BUILD_PACKAGES[@]}" clang-14 libclang-rt-14-dev lld
build fuzz "${targets[@]/#/fuzz_}" >"/tmp/velazce-fuzz-$$.log" 2>&1 || {
    cat "/tmp/velazce-fuzz-$$.log"
    rm -f "/tmp/velazce-fuzz-$$.log"
    exit 1
}
rm -f "/tmp/velazce-fuzz-$$.log"

out=$ROOT/build/fuzz
work=$(mktemp -d -p /dev/shm velafuzz.XXXXXX)
clean_up() {
    # shellcheck disable=SC2046
    kill $(jobs -p) 2>/dev/null || true
    wait
    rm -rf "$work" "/dev/shm/velafuzz$$-"*
}
trap clean_up EXIT
trap 'exit 130' INT TERM

# What a target did: its log and what it reports at its end. A slow or a large input is a finding too.
feed() {
    local target=$1 options=()
    mkdir -p "$out/corpus/$target" "$out/crashes" "$out/log"
    [ ! -f "fuzz/$target.dict" ] || options+=("-dict=fuzz/$target.dict")
    TMPDIR=$work ZCE_BOARD_SHM_PREFIX=velafuzz$$-$target- \
        "$out/bin/fuzz_$target" "$random" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$out/crashes/$target-" "${options[@]}" \
        "$out/corpus/$target" "$ROOT/fuzz/seeds/$target" >"$out/log/$target.log" 2>&1 </dev/null
}

report() {
    local target=$1 status=$2 log=$out/log/$1.log units coverage rate
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    units=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    [ -n "$units" ] || units=$(sed -n 's/^#\([0-9]*\).*/\1/p' "$log" | tail -n 1)
    coverage=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' "$log" | tail -n 1)
    printf '%-14s %10s executions %8s/s %6s edges  corpus %5s  %s\n' "$target" "${units:-0}" \
        "${rate:--}" "${coverage:-0}" "$(find "$out/corpus/$target" -type f | wc -l)" \
        "$([ "$status" = 0 ] && echo ok || echo CRASHED)"
    [ "$status" = 0 ] || {
        grep -m 3 -E 'ERROR: |SUMMARY: |broken rule|runtime error' "$log" || tail -n 5 "$log"
        sed -n 's/.*Test unit written to /reproduce: build\/fuzz\/bin\/fuzz_'"$target"' /p' "$log"
    }
}

say "Fuzzing ${#targets[@]} targets, $seconds s each"
for target in "${targets[@]}"; do
    while [ "$(jobs -rp | wc -l)" -ge $AT_ONCE ]; do wait -n || true; done
    { status=0; feed "$target" || status=$?; echo "$status" >"$work/$target.status"; } &
done
wait || true

total=0
crashed=()
for target in "${targets[@]}"; do
    status=$(cat "$work/$target.status")
    line=$(report "$target" "$status")
    echo "$line"
    total=$((total + $(awk 'NR == 1 { print $2 }' <<<"$line")))
    [ "$status" = 0 ] || crashed+=("$target")
done
if [ ${#crashed[@]} -gt 0 ]; then
    echo "fuzz: FAILED: ${crashed[*]} (logs in build/fuzz/log, inputs in build/fuzz/crashes)"
    exit 1
fi
echo "fuzz: ok, $total executions of ${#targets[@]} targets, no crash"

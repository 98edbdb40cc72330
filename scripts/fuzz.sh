#!/usr/bin/env bash
# fuzz.sh [SECONDS [TARGET...]]: feeds damaged input to the JSON reader, every reply
# handler, the cache records and the stored files, for 600 seconds each if none are given.
# The corpus grows in build/fuzz/corpus; an input that fails is left in build/fuzz.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh

seconds=${1:-600}
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(json reply record stored)

install_packages fuzz
build_preset fuzz

# Qt and the font libraries never free some of their memory; whole stacks for each
# allocation would take most of the time.
export ASAN_OPTIONS=detect_leaks=0:malloc_context_size=4:quarantine_size_mb=64:allocator_may_return_null=0
export UBSAN_OPTIONS=print_stacktrace=1
status=0
for target in "${targets[@]}"; do
    corpus=$root/build/fuzz/corpus/$target log=build/fuzz/$target.log
    mkdir -p "$corpus"
    failed=
    nice build/fuzz/fuzz/fuzz_"$target" -max_total_time="$seconds" -timeout=20 -detect_leaks=0 -rss_limit_mb=2048 -max_len=8192 \
        -dict="$root/fuzz/words.dict" -artifact_prefix="$root/build/fuzz/$target-" -print_final_stats=1 \
        "$corpus" "$root/fuzz/seeds/$target" >"$log" 2>&1 || failed=yes
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    covered=$(sed -n 's/.* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
    say "$target: ${runs:-0} runs, ${rate:-0} a second, $covered places covered${failed:+, FAILED: see $log}"
    [ -z "$failed" ] || status=1
done
exit $status

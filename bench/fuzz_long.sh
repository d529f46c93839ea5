#!/usr/bin/env bash
# Runs every libFuzzer target for a long time (default 10 minutes each) or
# for a number of executions, from the committed seed corpus, and prints one
# summary line per target: executions, seconds, findings. The corpus it grows
# stays in build/fuzz/tests/fuzz/work/ (the committed seeds are not changed).
#
#   bench/fuzz_long.sh [SECONDS]            # time-bound, default 600
#   FUZZ_RUNS=1000000 bench/fuzz_long.sh    # execution-bound instead
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
seconds=${1:-600}

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j"$(nproc)"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:halt_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export QT_QPA_PLATFORM=offscreen
status=0
for target in fuzz_step_lines fuzz_arg_convert fuzz_module_commands; do
  bin=build/fuzz/tests/fuzz/$target
  work=build/fuzz/tests/fuzz/work/$target
  dict=()
  [ "$target" != fuzz_module_commands ] && dict=(-dict="$root/tests/fuzz/json.dict")
  limit=(-max_total_time="$seconds")
  [ -n "${FUZZ_RUNS:-}" ] && limit=(-runs="$FUZZ_RUNS")
  log=$work/long.log
  mkdir -p "$work/corpus" "$work/artifacts"
  start=$(date +%s)
  set +e
  "$bin" "${limit[@]}" -timeout=10 -rss_limit_mb=2560 -max_len=65536 -print_final_stats=1 \
    -artifact_prefix="$work/artifacts/" "${dict[@]}" "$work/corpus" "tests/fuzz/corpus/$target" >"$log" 2>&1
  rc=$?
  set -e
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' || echo "?")
  findings=$(ls "$work/artifacts" 2>/dev/null | wc -l)
  echo "$target: exit $rc, $runs executions in $(( $(date +%s) - start )) s, $findings artifact(s), load $(cut -d' ' -f1 /proc/loadavg)"
  [ $rc -eq 0 ] || status=1
done
exit $status

#!/usr/bin/env bash
# Runs one libFuzzer target for a given time: seeds from the committed
# corpus (read only), new inputs into a work corpus in the build tree, and
# any crash, leak or timeout input saved there as well. Exit status is the
# fuzzer's: non-zero on any finding.
#   run_fuzzer.sh FUZZER SEED_DIR WORK_DIR SECONDS [extra libFuzzer flags...]
set -euo pipefail
fuzzer=$1 seeds=$2 work=$3 seconds=$4
shift 4
mkdir -p "$work/corpus" "$work/artifacts"
# Each input must finish within 10 s and the process stay under 2.5 GB;
# longer or larger is reported as a finding.
exec "$fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2560 \
  -max_len=65536 -print_final_stats=1 -artifact_prefix="$work/artifacts/" \
  "$@" "$work/corpus" "$seeds"

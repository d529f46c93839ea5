#!/bin/sh
# Runs the media benchmarks one after the other under a virtual X server.
#   bench/run_media_benches.sh <build dir> [--media-dir DIR] [--verbose]
# (the options every program takes). Each program makes its clips in
# <build dir>/bench/bench-media on first use; their own options (--runs,
# --reps, --starts, --seconds, ...) are listed by <program> --help.
set -e
build=${1:?usage: run_media_benches.sh <build dir> [options]}
shift
for b in play_cpu ready_latency start_spread layer_capacity; do
    echo "== $b (load average $(cut -d' ' -f1-3 /proc/loadavg))"
    xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" env QT_QPA_PLATFORM=offscreen \
        "$build/bench/kelmor_bench_$b" "$@"
done
# The compositor benchmark draws windowed screens: Qt's xcb platform.
echo "== compositor (load average $(cut -d' ' -f1-3 /proc/loadavg))"
xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" env -u QT_QPA_PLATFORM \
    "$build/bench/kelmor_bench_compositor" "$@"

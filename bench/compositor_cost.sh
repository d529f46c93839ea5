#!/bin/sh
# The compositor's cost, every figure in one run, each against a reference
# measured in the same run (interleaved repetitions, medians, load average
# printed by every program), then a summary of the ratios:
#   1. one 1080p layer on one 1280x720 screen vs mpv --vo=gpu --gpu-sw in a
#      1280x720 window (X server's CPU counted on both sides), and each added
#      screen, with the fewest pictures a second on three screens
#      (kelmor_bench_compositor, windowed: Qt's xcb platform);
#   2. layer capacity of 360p and 720p layers against ffmpeg's decode floor
#      (kelmor_bench_layer_capacity);
#   3. playReady -> ready against a bare libmpv load to first frame
#      (kelmor_bench_ready_latency);
#   4. frame-time p99 with a flood of 200 steps a second on standard input
#      against quiet phases (kelmor_bench_command_flood).
#
#   bench/compositor_cost.sh <build dir> [--quick] [--log FILE]
# --quick: shorter runs for a first look (capacity steps of 20 s, a 4-minute
# flood of 30 s phases); the defaults are the full figures (60 s steps, 10
# minutes of flood), about an hour on a 2-core machine.
# No GPU here: everything is software GL (Mesa llvmpipe) under Xvfb.
set -e
build=${1:?usage: compositor_cost.sh <build dir> [--quick] [--log FILE]}
shift
quick=0
log=
while [ $# -gt 0 ]; do
    case "$1" in
        --quick) quick=1 ;;
        --log) shift; log=${1:?--log needs a file} ;;
        *) echo "unknown option $1" >&2; exit 1 ;;
    esac
    shift
done
[ -n "$log" ] || log=$(mktemp /tmp/compositor-cost.XXXXXX.log)
bench="$build/bench"
media="$bench/bench-media"
if [ $quick = 1 ]; then
    capacity_seconds=20; flood_minutes=4; flood_phase=30; compositor_seconds=8; ready_reps=20
else
    capacity_seconds=60; flood_minutes=10; flood_phase=60; compositor_seconds=10; ready_reps=30
fi

run() {
    echo "== $* (load average $(cut -d' ' -f1-3 /proc/loadavg))" | tee -a "$log"
    xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" "$@" --media-dir "$media" 2>&1 | tee -a "$log"
}

: > "$log"
echo "compositor cost: $(date -u +%FT%TZ), $(nproc) cores, $(git -C "$(dirname "$0")" rev-parse --short HEAD 2>/dev/null)" | tee -a "$log"
# Windowed screens need the xcb platform.
run env -u QT_QPA_PLATFORM "$bench/kelmor_bench_compositor" --reps 3 --seconds $compositor_seconds
run env QT_QPA_PLATFORM=offscreen "$bench/kelmor_bench_ready_latency" --reps $ready_reps
run env QT_QPA_PLATFORM=offscreen "$bench/kelmor_bench_layer_capacity" --seconds $capacity_seconds
run env QT_QPA_PLATFORM=offscreen "$bench/kelmor_bench_command_flood" --minutes $flood_minutes --phase $flood_phase

echo
echo "== summary (full log: $log)"
grep -E '^(ratio|added|3 screens|median|[0-9]+p: capacity)' "$log"

#!/usr/bin/env bash
# Receiving a 1080p30 PipeWire video stream: a "spout" player shown on an
# offscreen screen (kelmor_bench_pipewire receive) against GStreamer's own
# `pipewiresrc ! fakesink` on the same stream, interleaved, REPS times
# (default 3), medians printed with the load average.
#
# Figures: CPU per received frame (ms, the receiving process only: user +
# system over a fixed window after a warm-up) and, for the spout player, the
# latency from the producer's CLOCK_MONOTONIC stamp to the first output
# frame that shows the picture (p50/p99, in frames of the 30 fps stream).
#
# Usage: bench/pipewire_bench.sh [BUILD_DIR] [REPS] [SECONDS]
# Needs: pipewire, wireplumber, dbus, gstreamer1.0-pipewire, xvfb. A private
# daemon is started in a temporary XDG_RUNTIME_DIR and stopped at the end.
set -euo pipefail
# Everything below runs under one virtual X server (OpenGL for the player).
if [ -z "${DISPLAY:-}" ]; then
  exec xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" "$0" "$@"
fi
cd "$(dirname "$0")/.."
build=${1:-build/default}
reps=${2:-3}
seconds=${3:-10}
bench="$build/bench/kelmor_bench_pipewire"
[ -x "$bench" ] || { echo "build $bench first" >&2; exit 1; }

runtime=$(mktemp -d /tmp/kelmor-pw-bench-XXXXXX)
chmod 700 "$runtime"
export XDG_RUNTIME_DIR=$runtime QT_QPA_PLATFORM=offscreen
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$runtime"
}
trap cleanup EXIT

dbus-daemon --session --nofork --print-address=3 3>"$runtime/bus" >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 50); do [ -s "$runtime/bus" ] && break; sleep 0.1; done
export DBUS_SESSION_BUS_ADDRESS=$(head -1 "$runtime/bus")
pipewire >/dev/null 2>&1 & pids+=($!)
for _ in $(seq 50); do [ -S "$runtime/pipewire-0" ] && break; sleep 0.1; done
wireplumber >/dev/null 2>&1 & pids+=($!)
sleep 1.5

# The producer: its own process, 1920x1080 BGRx at 30 fps, stamped.
"$bench" produce kelmor-bench-1080p 1920 1080 30 >/dev/null 2>&1 &
pids+=($!)
sleep 2

# CPU seconds (user + system) of a process, from /proc.
cpu_of() { awk -v hz="$(getconf CLK_TCK)" '{print ($14 + $15) / hz}' "/proc/$1/stat"; }

ours_cpu=(); ours_p50=(); ours_p99=(); gst_cpu=()
for rep in $(seq "$reps"); do
  line=$("$bench" receive kelmor-bench-1080p "$seconds" 2 2>/dev/null | tail -1)
  echo "rep $rep spout player: $line"
  ours_cpu+=("$(echo "$line" | sed -E 's/.*"cpu_ms_per_frame": ([0-9.-]+).*/\1/')")
  ours_p50+=("$(echo "$line" | sed -E 's/.*"latency_p50_frames": ([0-9.-]+).*/\1/')")
  ours_p99+=("$(echo "$line" | sed -E 's/.*"latency_p99_frames": ([0-9.-]+).*/\1/')")

  # "video/x-raw" (no conversion): with no caps at all, pipewiresrc of
  # 0.3.65 never settles on a format.
  gst-launch-1.0 -q pipewiresrc target-object=kelmor-bench-1080p ! video/x-raw ! fakesink >/dev/null 2>&1 &
  gpid=$!
  sleep 2
  c0=$(cpu_of "$gpid")
  sleep "$seconds"
  c1=$(cpu_of "$gpid")
  kill -INT "$gpid" 2>/dev/null || true
  wait "$gpid" 2>/dev/null || true
  g=$(awk -v a="$c0" -v b="$c1" -v s="$seconds" 'BEGIN { printf "%.3f", (b - a) * 1000 / (s * 30) }')
  echo "rep $rep gst pipewiresrc ! video/x-raw ! fakesink: cpu_ms_per_frame $g (at 30 frames a second)"
  gst_cpu+=("$g")
done

median() { printf '%s\n' "$@" | sort -g | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR+1)/2] : (a[NR/2] + a[NR/2+1]) / 2}'; }
m_ours=$(median "${ours_cpu[@]}")
m_gst=$(median "${gst_cpu[@]}")
echo
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "median CPU per frame: spout player $m_ours ms, pipewiresrc ! video/x-raw ! fakesink $m_gst ms, ratio $(awk -v a="$m_ours" -v b="$m_gst" 'BEGIN { printf "%.2f", (b > 0) ? a / b : 0 }')"
echo "median latency (frames of 30 fps): p50 $(median "${ours_p50[@]}"), p99 $(median "${ours_p99[@]}")"

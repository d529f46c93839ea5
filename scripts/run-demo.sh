#!/usr/bin/env bash
# The main job: installs what is needed, builds the show runner, makes the
# demonstration media and runs examples/demo.show, then says where the
# snapshots are.
#
#   media      build/demo-media   (examples/make-demo-media.sh)
#   output     build/demo-out     (PNG snapshots, a recording, events.jsonl)
#
# Without a display the show runs offscreen under a virtual X server
# (xvfb-run -a); with one, its screens are windows. Audio goes to libmpv's
# default output when the machine has a sound device, to "null" otherwise
# (KELMOR_AO overrides). KELMOR_SHOW_BIN names an already built kelmor-show
# and skips the build.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

./scripts/install-deps.sh

show_bin=${KELMOR_SHOW_BIN:-}
if [ -z "$show_bin" ]; then
  cmake --preset default >/dev/null
  cmake --build --preset default -j"$(nproc)" --target kelmor-show
  show_bin=build/default/host/kelmor-show
fi

media=build/demo-media
out=build/demo-out
./examples/make-demo-media.sh "$media" >/dev/null
rm -rf "$out"
mkdir -p "$out"

has_sound() {
  [ -n "${PULSE_SERVER:-}" ] && return 0
  [ -S "${XDG_RUNTIME_DIR:-/nonexistent}/pulse/native" ] && return 0
  compgen -G "/dev/snd/pcmC*D*p" >/dev/null
}
ao=${KELMOR_AO:-}
if [ -z "$ao" ] && ! has_sound; then
  ao=null
fi
args=(--out "$out" --set "media=$root/$media" --position-interval 500)
[ -n "$ao" ] && args+=(--ao "$ao")

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  echo "run-demo: no display; running offscreen under xvfb-run" >&2
  xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" "$show_bin" --offscreen "${args[@]}" examples/demo.show \
    | tee "$out/events.jsonl"
else
  "$show_bin" "${args[@]}" examples/demo.show | tee "$out/events.jsonl"
fi

echo
echo "run-demo: snapshots of the screens:"
for f in "$out"/*.png; do echo "  $root/$f"; done
echo "run-demo: recording: $root/$out/screen1-fade-in.mkv"
echo "run-demo: events: $root/$out/events.jsonl"

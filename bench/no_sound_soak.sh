#!/usr/bin/env bash
# Soak test of the engine's default audio output choice on a machine without
# a sound card or sound server: a show that readies video layers with sound
# together and starts them together, run RUNS times with 2 and with 8 layers,
# with no --ao (the engine's own list). Prints the crashes and hangs.
#   bench/no_sound_soak.sh <kelmor-show binary> [RUNS (50)] [EXTRA kelmor-show ARGS...]
# A run is a hang when it has not ended after 30 s, a crash when it ends on a
# signal. Runs under one virtual X server (xvfb-run).
set -euo pipefail
show_bin=$(realpath "${1:?usage: no_sound_soak.sh <kelmor-show> [runs] [args...]}")
runs=${2:-50}
shift; shift || true
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d /tmp/kelmor-no-sound.XXXXXX)
trap 'rm -rf "$work"' EXIT
bash "$here/../examples/make-demo-media.sh" "$work/media" >/dev/null

make_show() { # make_show LAYERS > file
  local n=$1 i
  echo '{"op": "openScreen", "id": 1, "width": 320, "height": 180}'
  for ((i = 1; i <= n; i++)); do
    echo "{\"op\": \"creatnewlayer\", \"args\": [{\"bankId\": 1, \"layerId\": $i, \"path\": \"$work/media/clip.mp4\", \"groupID\": 1, \"type\": \"video\", \"timeLenMsec\": 4000, \"isSetPr\": false}]}"
    echo "{\"op\": \"setLayerMediaType\", \"args\": [{\"bank\": 1, \"layer\": $i}, \"video\"]}"
    echo "{\"op\": \"addRenderer\", \"args\": [{\"bankId\": 1, \"layerId\": $i, \"screenId\": 1, \"screenType\": 0, \"clientGuid\": \"\", \"frameX\": 0, \"frameY\": 0, \"rendererX\": 0, \"rendererY\": 0, \"crossWidth\": 320, \"crossHeight\": 180, \"originalWidth\": 640, \"originalHeight\": 360, \"actualWidth\": 320, \"actualHeight\": 180, \"layerRotation\": 0, \"isScal\": false, \"isRotation\": false, \"isFill\": false, \"relativeX\": 0, \"relativeY\": 0}]}"
  done
  echo '{"op": "setCurPlayerCount", "args": [1]}'
  for ((i = 1; i <= n; i++)); do
    echo "{\"op\": \"playReady\", \"args\": [{\"bank\": 1, \"layer\": $i}, 0, true]}"
  done
  echo '{"op": "waitFor", "signal": "sPlayReady", "timeoutMs": 15000}'
  for ((i = 1; i <= n; i++)); do
    echo "{\"op\": \"play\", \"args\": [{\"bank\": 1, \"layer\": $i}]}"
  done
  echo '{"op": "wait", "ms": 800}'
}
make_show 2 > "$work/two.jsonl"
make_show 8 > "$work/eight.jsonl"

cat > "$work/loop.sh" <<'LOOP'
#!/usr/bin/env bash
# loop.sh BIN RUNS WORK [ARGS...]: runs both shows RUNS times, prints a summary.
bin=$1; runs=$2; work=$3; shift 3
for show in two eight; do
  ok=0; crash=0; hang=0; fail=0
  for ((r = 1; r <= runs; r++)); do
    set +e
    timeout -k 5 30 "$bin" --no-progress "$@" "$work/$show.jsonl" >"$work/out.txt" 2>"$work/err.txt"
    rc=$?
    set -e
    if [ $rc -eq 0 ]; then ok=$((ok + 1))
    elif [ $rc -eq 124 ] || [ $rc -eq 137 ]; then hang=$((hang + 1)); cp "$work/err.txt" "$work/hang-$show-$r.txt"
    elif [ $rc -gt 128 ]; then crash=$((crash + 1)); cp "$work/err.txt" "$work/crash-$show-$r.txt"
    else fail=$((fail + 1)); fi
  done
  layers=$([ $show = two ] && echo 2 || echo 8)
  echo "$layers layers: $runs runs, $ok ok, $crash crashes, $hang hangs, $fail other failures"
done
grep -h "mpv: audio output\|mpv: no sound output" "$work/err.txt" | head -1 || true
LOOP
xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" bash "$work/loop.sh" "$show_bin" "$runs" "$work" "$@"

#!/usr/bin/env bash
# Plays damaged media through the show runner: COUNT files (default 300) made
# from ffmpeg-made clips, sounds and pictures by cutting them short, zeroing
# or scrambling their first bytes, scrambling a stretch in the middle, giving
# them a wrong extension, and by empty files, directories named like media,
# random bytes and text. They are played 25 per runner process, all at once,
# next to a sentinel clip that plays throughout.
#   bench/corrupt_media_bench.sh <kelmor-show binary> [COUNT (300)]
# Prints the runs that crashed (ended on a signal) or hung (not ended 60 s
# after start), and how many files gave a mediaError, reported loaded, both
# (a defect) or neither (a defect: the host is never told).
set -euo pipefail
show_bin=$(realpath "${1:?usage: corrupt_media_bench.sh <kelmor-show> [count]}")
count=${2:-300}
per_run=25
work=$(mktemp -d /tmp/kelmor-corrupt.XXXXXX)
trap 'rm -rf "$work"' EXIT
good=$work/good bad=$work/bad
mkdir -p "$good" "$bad"

ff() { ffmpeg -hide_banner -loglevel error -nostdin -y "$@"; }
tone=(-f lavfi -i sine=frequency=440:sample_rate=48000 -t 2)
ff -f lavfi -i testsrc=size=160x90:rate=25 "${tone[@]}" -c:v libx264 -preset ultrafast -g 25 \
   -pix_fmt yuv420p -c:a aac "$good/clip.mp4"
ff -i "$good/clip.mp4" -c copy -movflags +faststart "$good/faststart.mp4"
ff "${tone[@]}" -c:a aac "$good/sound.m4a"
ff "${tone[@]}" -c:a libmp3lame "$good/sound.mp3"
ff "${tone[@]}" "$good/sound.wav"
ff -f lavfi -i testsrc=size=160x90:rate=1 -frames:v 1 "$good/still.png"
ff -f lavfi -i testsrc=size=160x90:rate=1 -frames:v 1 "$good/still.jpg"
ff -f lavfi -i testsrc=size=96x54:rate=10 -t 120 -c:v libx264 -preset ultrafast -g 10 \
   -pix_fmt yuv420p "$good/sentinel.mp4"

bases=(clip.mp4:video faststart.mp4:video sound.m4a:audio sound.mp3:audio sound.wav:audio
       still.png:picture still.jpg:picture)
exts=(mp4 m4a mp3 wav png jpg)
typeof() { case $1 in mp4) echo video;; m4a|mp3|wav) echo audio;; *) echo picture;; esac; }

# list: "path type" per line
: > "$work/list"
n=0
while [ $n -lt "$count" ]; do
  base=${bases[$((RANDOM % ${#bases[@]}))]}
  src=$good/${base%%:*} type=${base##*:} ext=${base%%:*}; ext=${ext##*.}
  size=$(stat -c %s "$src")
  out=$bad/f$n.$ext
  case $((RANDOM % 9)) in
    0) head -c $((RANDOM * size / 32768 + 1)) "$src" > "$out" ;;                     # cut short
    1) cp "$src" "$out"; z=$((RANDOM % 4096 + 1))
       dd if=/dev/zero of="$out" bs=1 count=$z conv=notrunc status=none ;;           # zeroed head
    2) cp "$src" "$out"; z=$((RANDOM % 1024 + 1))
       dd if=/dev/urandom of="$out" bs=1 count=$z conv=notrunc status=none ;;        # noisy head
    3) cp "$src" "$out"; off=$((RANDOM * size / 32768)); len=$((RANDOM % 8192 + 1))
       dd if=/dev/urandom of="$out" bs=1 seek=$off count=$len conv=notrunc status=none ;; # noise inside
    4) e=${exts[$((RANDOM % ${#exts[@]}))]}; out=$bad/f$n.$e; type=$(typeof "$e")
       cp "$src" "$out" ;;                                                          # wrong extension
    5) : > "$out" ;;                                                                 # empty
    6) mkdir -p "$out" ;;                                                            # directory
    7) head -c $((RANDOM % 65536 + 1)) /dev/urandom > "$out" ;;                      # random bytes
    8) { yes "This is a text file, not media." | head -c $((RANDOM % 4096 + 1)) > "$out"; } || true ;; # text
  esac
  echo "$out $type" >> "$work/list"
  n=$((n + 1))
done

cat > "$work/runs.sh" <<'RUNS'
#!/usr/bin/env bash
bin=$1; work=$2; per_run=$3
crash=0 hang=0 ok=0 errors=0 loads=0 both=0 neither=0 runs=0
mapfile -t lines < "$work/list"
for ((first = 0; first < ${#lines[@]}; first += per_run)); do
  show=$work/run.jsonl
  {
    echo "{\"op\": \"creatnewlayer\", \"args\": [{\"bankId\": 1, \"layerId\": 1, \"path\": \"$work/good/sentinel.mp4\", \"groupID\": 1, \"type\": \"video\", \"timeLenMsec\": 120000, \"isSetPr\": false}]}"
    echo '{"op": "playReady", "args": [{"bank": 1, "layer": 1}, 0, false]}'
    for ((i = first; i < first + per_run && i < ${#lines[@]}; i++)); do
      read -r path type <<< "${lines[$i]}"
      id=$((1000 + i))
      echo "{\"op\": \"creatnewlayer\", \"args\": [{\"bankId\": 2, \"layerId\": $id, \"path\": \"$path\", \"groupID\": 1, \"type\": \"$type\", \"timeLenMsec\": 4000, \"isSetPr\": false}]}"
      echo "{\"op\": \"setLayerMediaType\", \"args\": [{\"bank\": 2, \"layer\": $id}, \"$type\"]}"
      echo "{\"op\": \"playReady\", \"args\": [{\"bank\": 2, \"layer\": $id}, 0, false]}"
    done
    echo '{"op": "wait", "ms": 3000}'
  } > "$show"
  runs=$((runs + 1))
  set +e
  timeout -k 5 60 "$bin" --ao null --no-progress --position-interval 1000 "$show" > "$work/out.txt" 2> "$work/err.txt"
  rc=$?
  set -e
  if [ $rc -eq 0 ]; then ok=$((ok + 1))
  elif [ $rc -eq 124 ] || [ $rc -eq 137 ]; then hang=$((hang + 1)); echo "run $runs hung (files $first..)"
  elif [ $rc -gt 128 ]; then crash=$((crash + 1)); echo "run $runs crashed, signal $((rc - 128)) (files $first..)"
  else echo "run $runs ended with $rc"; fi
  for ((i = first; i < first + per_run && i < ${#lines[@]}; i++)); do
    id=$((1000 + i))
    e=$(grep -c "\"host\": \"mediaError\", \"bankId\": 2, \"layerId\": $id," "$work/out.txt" || true)
    l=$(grep -c "\"event\": \"sendLoadAllComple\", \"layerId\": $id}" "$work/out.txt" || true)
    [ "$e" -gt 0 ] && errors=$((errors + 1))
    [ "$l" -gt 0 ] && loads=$((loads + 1))
    if [ "$e" -gt 0 ] && [ "$l" -gt 0 ]; then both=$((both + 1)); echo "both: ${lines[$i]}"; fi
    if [ "$e" -eq 0 ] && [ "$l" -eq 0 ]; then neither=$((neither + 1)); echo "neither: ${lines[$i]}"; fi
  done
done
echo "files: ${#lines[@]} in $runs runs; runs ok $ok, crashed $crash, hung $hang"
echo "files with a mediaError: $errors, loaded: $loads, both: $both, neither: $neither"
RUNS
xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" bash "$work/runs.sh" "$show_bin" "$work" "$per_run"

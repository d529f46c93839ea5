#!/usr/bin/env bash
# The example host program against an installed package: builds
# examples/host-app with the prefix as CMAKE_PREFIX_PATH, plays a clip of one
# known colour on an offscreen output screen, and checks that the screen's
# snapshot shows that colour over the whole screen. A blank, black or
# misplaced picture fails, and so does a run that cannot find the module's
# libraries without LD_LIBRARY_PATH.
#
# Usage: tests/package/host_app_test.sh PREFIX WORKDIR
# Runs itself under xvfb-run when no display is set (the screens need GL).
set -euo pipefail

if [ $# -ne 2 ]; then
  echo "usage: $0 PREFIX WORKDIR" >&2
  exit 2
fi
prefix=$(cd "$1" && pwd)
mkdir -p "$2"
work=$(cd "$2" && pwd)
result="$work/result"

if [ -z "${DISPLAY:-}" ] && [ -z "${HOST_APP_TEST_UNDER_XVFB:-}" ]; then
  command -v xvfb-run >/dev/null || { echo "host_app_test: no display and no xvfb-run" >&2; exit 2; }
  # xvfb-run's own exit status replaces the script's when it cannot clean up
  # after itself, so the verdict comes back through a file.
  rm -f "$result"
  rc=0
  HOST_APP_TEST_UNDER_XVFB=1 xvfb-run -a -s "-screen 0 1920x1080x24 -noreset" "$0" "$prefix" "$work" || rc=$?
  if [ "$(cat "$result" 2>/dev/null)" = passed ]; then
    exit 0
  fi
  [ "$rc" -ne 0 ] || rc=1
  exit "$rc"
fi
rm -f "$result"
source_dir=$(cd "$(dirname "$0")/../../examples/host-app" && pwd)

# Screen size and clip colour (R, G, B); the tolerance covers the YUV round
# trip of the encoder and the scaling.
screen_w=640
screen_h=360
colour_hex=2060C0
colour_rgb="32 96 192"
tolerance=24

generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
rm -rf "$work/build" "$work/snapshot.png"
echo "host_app_test: building $source_dir against $prefix"
cmake -S "$source_dir" -B "$work/build" "${generator[@]}" \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_PREFIX_PATH="$prefix" >"$work/configure.log" 2>&1 \
  || { cat "$work/configure.log" >&2; echo "host_app_test: configure failed" >&2; exit 1; }
cmake --build "$work/build" -j2 >"$work/build.log" 2>&1 \
  || { cat "$work/build.log" >&2; echo "host_app_test: build failed" >&2; exit 1; }
app="$work/build/kelmor-host-app"

ffmpeg -v error -y -f lavfi -i "color=c=0x${colour_hex}:s=320x180:d=2:r=25" \
  -pix_fmt yuv420p "$work/clip.mp4"

echo "host_app_test: playing the clip, snapshot after 1500 ms"
rc=0
env -u LD_LIBRARY_PATH QT_QPA_PLATFORM=offscreen timeout 90 "$app" \
  --file "$work/clip.mp4" --play --offscreen --screen "${screen_w}x${screen_h}+0+0" \
  --snapshot "$work/snapshot.png" --after-ms 1500 >"$work/app.log" 2>&1 || rc=$?
if [ "$rc" -ne 0 ]; then
  tail -n 40 "$work/app.log" >&2
  echo "host_app_test: the host program failed (exit $rc)" >&2
  exit 1
fi
[ -s "$work/snapshot.png" ] || { echo "host_app_test: no snapshot written" >&2; exit 1; }

# Reads the PNG with zlib (8-bit RGB or RGBA, not interlaced) and compares
# the centre and four points near the corners with the clip's colour.
python3 - "$work/snapshot.png" "$screen_w" "$screen_h" "$tolerance" $colour_rgb <<'PY'
import struct, sys, zlib

path, width, height, tolerance = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
expected = tuple(int(v) for v in sys.argv[5:8])
data = open(path, "rb").read()
if data[:8] != b"\x89PNG\r\n\x1a\n":
    sys.exit("snapshot: not a PNG file")
pos, header, idat = 8, None, b""
while pos + 8 <= len(data):
    length, kind = struct.unpack(">I4s", data[pos:pos + 8])
    body = data[pos + 8:pos + 8 + length]
    if kind == b"IHDR":
        header = struct.unpack(">IIBBBBB", body)
    elif kind == b"IDAT":
        idat += body
    elif kind == b"IEND":
        break
    pos += 12 + length
if header is None:
    sys.exit("snapshot: no IHDR chunk")
w, h, depth, colour_type, _, _, interlace = header
if (w, h) != (width, height):
    sys.exit(f"snapshot: {w}x{h}, expected the screen's {width}x{height}")
if depth != 8 or colour_type not in (2, 6) or interlace != 0:
    sys.exit(f"snapshot: unsupported PNG (depth {depth}, colour type {colour_type}, interlace {interlace})")
bpp = 3 if colour_type == 2 else 4
stride = w * bpp
raw = zlib.decompress(idat)
if len(raw) != h * (stride + 1):
    sys.exit("snapshot: image data of the wrong size")
rows, prev = [], bytearray(stride)
for y in range(h):
    kind = raw[y * (stride + 1)]
    line = bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
    for i in range(stride):
        a = line[i - bpp] if i >= bpp else 0
        b = prev[i]
        c = prev[i - bpp] if i >= bpp else 0
        if kind == 1:
            line[i] = (line[i] + a) & 255
        elif kind == 2:
            line[i] = (line[i] + b) & 255
        elif kind == 3:
            line[i] = (line[i] + (a + b) // 2) & 255
        elif kind == 4:
            p = a + b - c
            pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
            pred = a if pa <= pb and pa <= pc else (b if pb <= pc else c)
            line[i] = (line[i] + pred) & 255
        elif kind != 0:
            sys.exit(f"snapshot: unknown PNG filter {kind}")
    rows.append(line)
    prev = line
points = [(w // 2, h // 2), (w // 8, h // 8), (7 * w // 8, h // 8), (w // 8, 7 * h // 8), (7 * w // 8, 7 * h // 8)]
bad = []
for x, y in points:
    pixel = tuple(rows[y][x * bpp:x * bpp + 3])
    if any(abs(p - e) > tolerance for p, e in zip(pixel, expected)):
        bad.append(f"({x},{y}) is {pixel}")
if bad:
    sys.exit(f"snapshot: expected {expected} within {tolerance}: " + "; ".join(bad))
print(f"snapshot: {len(points)} points match {expected} within {tolerance}")
PY
echo passed >"$result"
echo "host_app_test: passed"

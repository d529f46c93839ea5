#!/usr/bin/env bash
# Makes the demonstration media with ffmpeg into DIR (default: ./demo-media):
#   clip.mp4       640x360, 4 s, 25 fps test pattern with a 440 Hz tone
#   quadrants.mp4  640x360, 4 s: red top-left, green top-right, blue
#                  bottom-left, white bottom-right; BT.709 limited range,
#                  tagged as such, so decoded colours come back exact
#   still-a.png    320x180 yellow (255, 255, 0)
#   still-b.png    320x180 magenta (255, 0, 255)
# Files already there are kept. Each file is written under a temporary name
# and renamed, so runs side by side (parallel tests) never see half a file.
set -euo pipefail

dir=${1:-demo-media}
mkdir -p "$dir"
command -v ffmpeg >/dev/null || { echo "make-demo-media: ffmpeg not found" >&2; exit 1; }

make() { # make NAME ffmpeg-arguments... (the output file comes last)
  local name=$1; shift
  [ -s "$dir/$name" ] && return 0
  local tmp="$dir/.tmp-$$-$name"
  ffmpeg -hide_banner -loglevel error -nostdin -y "$@" "$tmp"
  mv -f "$tmp" "$dir/$name"
}

bt709=(-colorspace bt709 -color_primaries bt709 -color_trc bt709 -color_range tv)

make clip.mp4 \
  -f lavfi -i "testsrc2=size=640x360:rate=25:duration=4" \
  -f lavfi -i "sine=frequency=440:sample_rate=48000:duration=4" \
  -vf "scale=out_color_matrix=bt709:out_range=tv,format=yuv420p,setparams=colorspace=bt709:color_primaries=bt709:color_trc=bt709:range=tv" \
  -c:v libx264 -preset veryfast -crf 18 -g 25 "${bt709[@]}" -c:a aac -b:a 128k -shortest

make quadrants.mp4 \
  -f lavfi -i "color=c=0xFF0000:size=320x180:rate=25:duration=4" \
  -f lavfi -i "color=c=0x00FF00:size=320x180:rate=25:duration=4" \
  -f lavfi -i "color=c=0x0000FF:size=320x180:rate=25:duration=4" \
  -f lavfi -i "color=c=0xFFFFFF:size=320x180:rate=25:duration=4" \
  -filter_complex "[0][1][2][3]xstack=inputs=4:layout=0_0|w0_0|0_h0|w0_h0,scale=out_color_matrix=bt709:out_range=tv,format=yuv420p,setparams=colorspace=bt709:color_primaries=bt709:color_trc=bt709:range=tv" \
  -c:v libx264 -preset veryfast -crf 8 -g 25 "${bt709[@]}"

make still-a.png -f lavfi -i "color=c=0xFFFF00:size=320x180" -frames:v 1 -pix_fmt rgb24
make still-b.png -f lavfi -i "color=c=0xFF00FF:size=320x180" -frames:v 1 -pix_fmt rgb24

echo "$dir"

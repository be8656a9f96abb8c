#!/usr/bin/env bash
# Regenerates the seeds of fragment_start_fuzzer in fuzz/seeds/fragment/: fragmented MP4 ladders
# made by ffmpeg (plain, with B-frames, with a start offset carried in the decode time), each seed
# a 16-bit big-endian length, the init segment, then the first media segment.
# Needs ffmpeg with libx264. Usage: fuzz/seeds/make_fragment_seeds.sh
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
out="$root/fuzz/seeds/fragment"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"

seed() {
  local name="$1"; shift
  mkdir "$work/$name"
  ffmpeg -v error -f lavfi -i testsrc=size=16x16:rate=25 -t 0.4 -c:v libx264 -preset ultrafast \
    -g 10 -fflags +bitexact -flags:v +bitexact "$@" -f hls -hls_segment_type fmp4 -hls_time 1 \
    "$work/$name/video.m3u8"
  local init="$work/$name/init.mp4"
  printf "\\x$(printf %02x $(( $(stat -c %s "$init") >> 8 )))\\x$(printf %02x $(( $(stat -c %s "$init") & 255 )))" \
    >"$out/ffmpeg-$name.bin"
  cat "$init" "$work/$name/video0.m4s" >>"$out/ffmpeg-$name.bin"
}
seed plain -bf 0
seed bframes -bf 2
seed discont -bf 2 -output_ts_offset 10 -hls_segment_options movflags=+frag_discont
ls -l "$out"

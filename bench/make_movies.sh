#!/usr/bin/env bash
# Makes the two benchmark movies, each two hours long with one JPEG video track, one 8 kHz AAC
# track and one timed-text subtitle track of 1,500 cues (a cue every 4.8 s, 2 s long):
#   bench/out/movie-2h.mp4  16x16 video at 1 frame per second (about 2 MB)
#   bench/out/movie-3g.mp4  1280x720 noise frames of ~750 KB at 13/24 frames per second (~3 GB)
# Nothing is encoded per frame: one still image is encoded once and repeated by stream copy,
# and the audio is encoded once at 8 kHz, so both files take seconds, bound by disk writes.
# Files that exist are kept; FORCE=1 makes them again.
# Usage: bench/make_movies.sh   (prints the two paths)
set -euo pipefail
cd "$(dirname "$0")"
out="$PWD/out"
mkdir -p "$out"
small="$out/movie-2h.mp4"
large="$out/movie-3g.mp4"
if [ "${FORCE:-0}" != 1 ] && [ -s "$small" ] && [ -s "$large" ]; then
  printf '%s\n%s\n' "$small" "$large"
  exit 0
fi
work="$out/make-movies.tmp"
rm -rf "$work" && mkdir -p "$work"
trap 'rm -rf "$work"' EXIT

python3 - "$work/cues.srt" <<'PY'
import sys
def t(ms):
    return "%02d:%02d:%02d,%03d" % (ms // 3600000, ms // 60000 % 60, ms // 1000 % 60, ms % 1000)
with open(sys.argv[1], "w") as f:
    for i in range(1500):
        start = i * 4800
        f.write("%d\n%s --> %s\nCue number %d with <b>bold</b> text\n\n" % (i + 1, t(start), t(start + 2000), i))
PY
ff() { ffmpeg -nostdin -v error -y "$@"; }
ff -f lavfi -i anullsrc=r=8000:cl=mono -t 7200 -c:a aac -b:a 8k "$work/audio.m4a"
ff -f lavfi -i color=black:size=16x16 -frames:v 1 -c:v mjpeg "$work/tiny.jpg"
# Uniform noise at the best JPEG quality barely compresses: one frame is about 750 KB.
ff -f lavfi -i "color=gray:size=1280x720,noise=alls=100:allf=u" -frames:v 1 -q:v 1 -c:v mjpeg \
  "$work/noise.jpg"

# movie FRAME RATE OUTPUT: the still frame repeated for two hours, with the audio and the cues.
movie() {
  ff -loop 1 -framerate "$2" -i "$1" -i "$work/audio.m4a" -i "$work/cues.srt" \
    -map 0:v -map 1:a -map 2:s -t 7200 -c:v copy -c:a copy -c:s mov_text "$3.tmp.mp4"
  mv "$3.tmp.mp4" "$3"
}
movie "$work/tiny.jpg" 1 "$small"
movie "$work/noise.jpg" 13/24 "$large"
printf '%s\n%s\n' "$small" "$large"

#!/usr/bin/env bash
# Benchmark of the movie reader: makes a 2-hour movie with ffmpeg (tiny video, audio, 1,500
# timed-text cues) and a ~3 GB variant with large video samples, then reports the bytes read
# and the time for opening each and reading every sample of its subtitle track. The bound to
# meet: the header plus the subtitle samples plus 4 KiB per sample.
# Usage: bench/movie_read.sh   (the 3 GB file needs that much free space in $BENCH_DIR, default /tmp)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh normal >/dev/null
work="${BENCH_DIR:-/tmp}/hlsvtt-movie-bench"
rm -rf "$work" && mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
g++ -std=c++20 -O2 -Isrc bench/movie_read.cpp build/libhlsvtt_core.a -o "$work/movie_read" \
  -lcrypto -lz -licuuc -licudata

# 1,500 cues over two hours: one every 4.8 s, 2 s long.
python3 - "$work/cues.srt" <<'PY'
import sys
def t(ms):
    return "%02d:%02d:%02d,%03d" % (ms // 3600000, ms // 60000 % 60, ms // 1000 % 60, ms % 1000)
with open(sys.argv[1], "w") as f:
    for i in range(1500):
        start = i * 4800
        f.write("%d\n%s --> %s\nCue number %d with <b>bold</b> text\n\n" % (i + 1, t(start), t(start + 2000), i))
PY
ffmpeg -v error -y -f lavfi -i color=black:size=32x32:rate=1:duration=7200 \
  -f lavfi -i anullsrc=r=8000:cl=mono -t 7200 -i "$work/cues.srt" -map 0 -map 1 -map 2 \
  -c:v mpeg4 -c:a aac -b:a 8k -c:s mov_text "$work/small.mp4"
# Large video samples: uncompressed 384x360 frames (207,360 bytes each) at 2 per second give
# ~3 GB; a movie file holds raw video where an MP4 file does not.
ffmpeg -v error -y -f lavfi -i color=gray:size=384x360:rate=2:duration=7200 -i "$work/cues.srt" \
  -map 0 -map 1 -c:v rawvideo -pix_fmt yuv420p -c:s mov_text "$work/large.mov"
for f in small.mp4 large.mov; do
  echo "## $f: $(stat -c %s "$work/$f") bytes"
  "$work/movie_read" "$work/$f"
done

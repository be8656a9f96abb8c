#!/usr/bin/env bash
# Regenerates the movie reader's seed files in fuzz/seeds/movie/: four from the test box builder
# and three made by ffmpeg (subtitle tracks from SRT, in MP4, MOV and with a video track).
# Needs a C++20 compiler, zlib and ffmpeg. Usage: fuzz/seeds/make_movie_seeds.sh
set -euo pipefail
root="$(cd "$(dirname "$0")/../.." && pwd)"
out="$root/fuzz/seeds/movie"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"

"${CXX:-c++}" -std=c++20 -O1 -I "$root/tests" "$root/fuzz/seeds/builder_movies.cpp" \
  "$root/tests/media/formats/movie/movie_builder.cpp" -lz -o "$work/builder_movies"
"$work/builder_movies" "$out"

printf '1\n00:00:00,500 --> 00:00:01,500\nHello\n\n2\n00:00:02,000 --> 00:00:03,250\n<i>two</i>\nlines\n\n' \
  >"$work/a.srt"
printf '1\n00:00:00,000 --> 00:00:01,000\nBonjour\n\n' >"$work/b.srt"
ff() { ffmpeg -v error -y -fflags +bitexact "$@"; }
ff -i "$work/a.srt" -i "$work/b.srt" -map 0 -map 1 -c:s mov_text -metadata:s:s:0 language=eng \
  -metadata:s:s:1 language=fra -metadata:s:s:1 title=French -flags:s +bitexact \
  "$out/ffmpeg-two-tracks.mp4"
ff -i "$work/a.srt" -c:s mov_text -movflags +faststart "$out/ffmpeg-text.mov"
ff -f lavfi -i color=black:size=16x16:rate=1:duration=3 -i "$work/a.srt" -map 0 -map 1 \
  -c:v mpeg4 -q:v 31 -c:s mov_text -flags +bitexact "$out/ffmpeg-video.mp4"
ls -l "$out"

#!/usr/bin/env bash
# Benchmark of the movie reader: for the two movies of bench/make_movies.sh (two hours, tiny
# video and audio, 1,500 subtitle cues; and the same with ~3 GB of video samples), the bytes read
# and the time for opening each through the reader registry and reading every sample of its
# subtitle track (see bench/movie_read.cpp for how bytes are counted). Fails when the bytes read
# exceed the header plus the subtitle samples plus 4 KiB per sample.
# Usage: bench/movie_read.sh [runs]   (default 5)
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-5}"
scripts/build.sh normal >/dev/null
mapfile -t movies < <(bench/make_movies.sh)
tool=bench/out/movie_read
g++ -std=c++20 -O2 -Wall -Wextra -Werror -Wshadow -Wconversion -Wsign-conversion -Wpedantic \
  -Wold-style-cast -Isrc bench/movie_read.cpp build/libhlsvtt_formats.a \
  build/libhlsvtt_formatreader.a build/libhlsvtt_media_core.a build/libhlsvtt_common.a -o "$tool" \
  -lcrypto -lz -licui18n -licuuc -licudata
status=0
for movie in "${movies[@]}"; do
  echo "## $(basename "$movie"): $(stat -c %s "$movie") bytes"
  "$tool" "$movie" "$runs" || status=1
done
exit $status

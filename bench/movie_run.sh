#!/usr/bin/env bash
# Benchmark of segmenting a movie's subtitle track, side by side: hlsvtt, ffmpeg extracting the
# track and segmenting it, and the floor (bench/movie_floor.c: reads the header and the
# subtitle samples and creates the same files with the same sizes). Inputs are the two movies
# of bench/make_movies.sh (two hours, 1,500 cues; tiny video, and ~3 GB of video); 10-second
# segments, output on tmpfs. Prints a Markdown table of median wall time, peak memory and the
# bytes each read (rchar: every byte returned by its read calls, from any file), then the
# targets: at most 2x the floor, at least 10x faster than ffmpeg, at most 16 MiB of memory, at
# most 2 MB read from the 3 GB file.
# Usage: bench/movie_run.sh [runs]   (default 5)
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-5}"
scripts/build.sh normal >/dev/null
mapfile -t movies < <(bench/make_movies.sh)

work=/dev/shm/hlsvtt-movie-bench
rm -rf "$work" && mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
cc -O2 -o "$work/floor" bench/movie_floor.c
hlsvtt="$PWD/build/hlsvtt"
measure() {
  local n="$1"
  shift
  python3 bench/measure.py --io "$n" 300 "$work/out" -- "$@"
}

echo "| input | tool | wall (s) | peak memory (MiB) | read (MB) | vs floor | ffmpeg vs tool |"
echo "|---|---|---|---|---|---|---|"
targets=()
for movie in "${movies[@]}"; do
  name="$(basename "$movie") ($(numfmt --to=si "$(stat -c %s "$movie")")B)"
  # The floor creates exactly the files hlsvtt creates, with the same sizes.
  mkdir -p "$work/ref" && "$hlsvtt" -q -t 10 -f "$work/ref" "$movie"
  (cd "$work/ref" && find . -type f -printf '%s %P\n') >"$work/sizes"
  rm -rf "$work/ref"

  declare -A result=()
  result[floor]=$(measure "$runs" "$work/floor" "$movie" "$work/sizes" OUT)
  result[hlsvtt]=$(measure "$runs" "$hlsvtt" -t 10 -f OUT "$movie")
  result[ffmpeg]=$(measure "$runs" ffmpeg -nostdin -v error -i "$movie" -map 0:s:0 -c:s webvtt \
    -f segment -segment_format webvtt -segment_time 10 -segment_list OUT/out.m3u8 \
    'OUT/seg%d.vtt')
  read -r floor_t _ _ <<<"${result[floor]}"
  read -r ffmpeg_t _ _ <<<"${result[ffmpeg]}"
  for tool in floor hlsvtt ffmpeg; do
    case "${result[$tool]}" in
      timeout | failed) echo "| $name | $tool | ${result[$tool]} | - | - | - | - |"; continue ;;
    esac
    read -r t m r <<<"${result[$tool]}"
    awk -v c="$name" -v tool="$tool" -v t="$t" -v m="$m" -v r="$r" -v f="$floor_t" -v g="$ffmpeg_t" \
      'BEGIN { printf "| %s | %s | %.4f | %.1f | %.2f | %.2fx | %.1fx |\n",
               c, tool, t, m / 1024, r / 1e6, t / f, g / t }'
  done
  read -r t m r <<<"${result[hlsvtt]}"
  targets+=("$(awk -v c="$(basename "$movie")" -v t="$t" -v m="$m" -v r="$r" -v f="$floor_t" \
    -v g="$ffmpeg_t" -v big="$([[ $movie == *3g* ]] && echo 1 || echo 0)" \
    'function v(ok) { return ok ? "met" : "MISSED" }
     BEGIN { printf "%s: %.2fx the floor (<= 2: %s), ffmpeg %.1fx slower (>= 10: %s), %.1f MiB (<= 16: %s)",
               c, t / f, v(t <= 2 * f), g / t, v(g >= 10 * t), m / 1024, v(m <= 16384);
             if (big) printf ", %.2f MB read (<= 2: %s)", r / 1e6, v(r <= 2e6) }')")
  unset result
done
echo
printf 'hlsvtt targets, %s\n' "${targets[@]}"

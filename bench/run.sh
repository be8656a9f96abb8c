#!/usr/bin/env bash
# Benchmark: hlsvtt against the peers a user would otherwise pick (ffmpeg's segment muxer,
# node-webvtt, the python3-webvtt segmenter) and against the floor (a C program that only
# creates the same files with the same sizes), on generated inputs of 1,500 and 200,000 cues,
# 10-second segments, output on tmpfs. Prints a Markdown table of median wall time and peak
# memory over the runs. Usage: bench/run.sh [runs]   (default 5)
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-5}"
scripts/install-deps.sh
scripts/build.sh normal >/dev/null
(cd bench && [ -d node_modules ] || npm ci --silent --no-audit --no-fund >/dev/null)

work=/dev/shm/hlsvtt-bench
rm -rf "$work" && mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
cc -O2 -o "$work/floor" bench/floor.c
gen=../shared/tools/gen_vtt.py
hlsvtt="$PWD/build/hlsvtt"
python=/usr/bin/python3  # Debian's, which has the python3-webvtt package

# measure RUNS COMMAND...: median wall seconds and peak KiB (see bench/measure.py).
# A run longer than $limit seconds is reported as such.
limit=300
measure() {
  local n="$1"
  shift
  python3 bench/measure.py "$n" "$limit" "$work/out" -- "$@"
}

echo "| input | tool | wall (s) | peak memory (MiB) | vs floor | vs hlsvtt |"
echo "|---|---|---|---|---|---|"
for cues in 1500 200000; do
  input="$work/in$cues.vtt"
  python3 "$gen" "$cues" "$input"
  # The floor creates exactly the files hlsvtt creates, with the same sizes.
  mkdir -p "$work/ref" && "$hlsvtt" -q -t 10 -f "$work/ref" "$input"
  find "$work/ref" -type f -printf '%s\n' >"$work/sizes"
  files=$(wc -l <"$work/sizes")
  rm -rf "$work/ref"

  # ffmpeg rewrites its segment list after every segment, which grows quadratically: it runs
  # once on the large input (about 860 s here, past the limit). Without the list it writes no
  # playlist, so it is shown apart.
  slow=$runs
  [ "$cues" -gt 100000 ] && slow=1
  declare -A result=()
  result[floor]=$(measure "$runs" "$work/floor" "$work/sizes" OUT)
  result[hlsvtt]=$(measure "$runs" "$hlsvtt" -q -t 10 -f OUT "$input")
  result[ffmpeg]=$(measure "$slow" ffmpeg -nostdin -v error -i "$input" -c:s copy -f segment \
    -segment_time 10 -segment_format webvtt -segment_list OUT/list.m3u8 OUT/seg%d.vtt)
  result[ffmpeg-no-playlist]=$(measure "$runs" ffmpeg -nostdin -v error -i "$input" -c:s copy \
    -f segment -segment_time 10 -segment_format webvtt OUT/seg%d.vtt)
  result[node-webvtt]=$(measure "$runs" node bench/node_webvtt_segment.js "$input" OUT 10)
  result[python3-webvtt]=$(measure "$runs" "$python" bench/python_webvtt_segment.py "$input" OUT 10)

  floor_t=${result[floor]% *}
  hlsvtt_t=${result[hlsvtt]% *}
  for tool in floor hlsvtt ffmpeg ffmpeg-no-playlist node-webvtt python3-webvtt; do
    case "${result[$tool]}" in
      timeout) echo "| $cues ($files files) | $tool | > $limit | - | - | - |"; continue ;;
      failed) echo "| $cues ($files files) | $tool | failed | - | - | - |"; continue ;;
    esac
    read -r t m <<<"${result[$tool]}"
    awk -v c="$cues ($files files)" -v tool="$tool" -v t="$t" -v m="$m" -v f="$floor_t" -v h="$hlsvtt_t" \
      'BEGIN { fl = f > 0 ? sprintf("%.2fx", t / f) : "-"; hv = h > 0 ? sprintf("%.2fx", t / h) : "-";
               printf "| %s | %s | %.4f | %.1f | %s | %s |\n", c, tool, t, m / 1024, fl, hv }'
  done
  unset result
done

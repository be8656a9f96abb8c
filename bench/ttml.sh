#!/usr/bin/env bash
# Benchmark: a two-hour TTML document of 1,500 paragraphs (styled spans, line breaks, a span with
# its own timing in every tenth paragraph) against the same cues in a WebVTT source, both
# segmented by hlsvtt with 10-second segments on tmpfs, side by side with imsc under Node parsing
# the document and listing its time events. The same is done for a document ten times as dense
# (ten times the paragraphs over the same two hours), where the reading of the document outweighs
# the start of the process and the writing of the segments. Prints a Markdown table of median wall
# time and peak memory, the reader alone against imsc alone inside their processes
# (bench/ttml_read.cpp, bench/imsc_events.js), and the ratios the TTML branch aims at. Usage: bench/ttml.sh [runs] [paragraphs]   (default 5 runs, 1,500
# paragraphs); HLSVTT=path/to/hlsvtt measures that binary instead of building this tree.
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-5}"
paragraphs="${2:-1500}"
if [ -z "${HLSVTT:-}" ]; then
  scripts/build.sh normal >/dev/null
fi
(cd bench && [ -d node_modules/imsc ] || npm ci --silent --no-audit --no-fund >/dev/null)
# The reader alone, inside one process, for the comparison with imsc inside Node.
mkdir -p bench/out
reader=bench/out/ttml_read
g++ -std=c++20 -O2 -Wall -Wextra -Werror -Wshadow -Wconversion -Wsign-conversion -Wpedantic \
  -Wold-style-cast -Isrc bench/ttml_read.cpp build/libhlsvtt_formats.a build/libhlsvtt_media_core.a \
  build/libhlsvtt_common.a -o "$reader" -lexpat

work=/dev/shm/hlsvtt-bench-ttml
rm -rf "$work" && mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
hlsvtt="${HLSVTT:-$PWD/build/hlsvtt}"
limit=300

for scale in 1 10; do
mkdir -p "$work/x$scale"
python3 - "$((paragraphs * scale))" "$work/x$scale" <<'PY'
import sys
n, work = int(sys.argv[1]), sys.argv[2]
words = "the quick brown fox jumps over a lazy dog while rain falls on quiet city streets".split()
def clock(ms):
    return "%02d:%02d:%02d.%03d" % (ms // 3600000, ms // 60000 % 60, ms // 1000 % 60, ms % 1000)
ttml = ['<?xml version="1.0" encoding="UTF-8"?>\n<tt xmlns="http://www.w3.org/ns/ttml" '
        'xmlns:tts="http://www.w3.org/ns/ttml#styling" xml:lang="en"><head><styling>'
        '<style xml:id="it" tts:fontStyle="italic"/></styling></head><body><div>\n']
vtt = ["WEBVTT\n\n"]
step = 7200000 // n
for i in range(n):
    begin, end = i * step + 100, i * step + step - 200
    a = " ".join(words[(i + k) % len(words)] for k in range(6))
    b = " ".join(words[(i * 3 + k) % len(words)] for k in range(5))
    if i % 10 == 9:
        # The second line appears half-way through: two cues.
        mid = (begin + end) // 2
        ttml.append('<p begin="%s" end="%s">%s<br/><span begin="%dms">%s</span></p>\n'
                    % (clock(begin), clock(end), a, mid - begin, b))
        vtt.append("%s --> %s\n%s\n\n%s --> %s\n%s\n%s\n\n"
                   % (clock(begin), clock(mid), a, clock(mid), clock(end), a, b))
    else:
        ttml.append('<p begin="%s" end="%s">%s<br/><span style="it">%s</span></p>\n'
                    % (clock(begin), clock(end), a, b))
        vtt.append("%s --> %s\n%s\n<i>%s</i>\n\n" % (clock(begin), clock(end), a, b))
ttml.append("</div></body></tt>\n")
open(work + "/doc.ttml", "w").write("".join(ttml))
open(work + "/doc.vtt", "w").write("".join(vtt))
PY
done

# Both sources must give the same segments, or the comparison means nothing.
for scale in 1 10; do
  rm -rf "$work/a" "$work/b" && mkdir -p "$work/a" "$work/b"
  "$hlsvtt" -q -t 10 -f "$work/a" "$work/x$scale/doc.ttml"
  "$hlsvtt" -q -t 10 -f "$work/b" "$work/x$scale/doc.vtt"
  if ! diff -rq "$work/a" "$work/b" >/dev/null; then
    echo "the TTML and WebVTT sources do not give the same segments" >&2
    exit 1
  fi
done

echo "| run | size (KB) | wall (s) | peak memory (MiB) |"
echo "|---|---|---|---|"
declare -A wall memory size
# row KEY NAME INPUT: one line of the table from what `measure.py` gave for KEY.
row() {
  local key="$1" name="$2" input="$3"
  size[$key]=$(stat -c %s "$input")
  awk -v n="$name" -v s="${size[$key]}" -v t="${wall[$key]}" -v m="${memory[$key]}" \
    'BEGIN { printf "| %s | %.0f | %.3f | %.1f |\n", n, s / 1e3, t, m / 1024 }'
}
for scale in 1 10; do
  doc="$work/x$scale/doc"
  name="$((paragraphs * scale)) paragraphs"
  # The two sources in alternation, so that the machine's pace weighs on both alike.
  {
    read -r "wall[ttml$scale]" "memory[ttml$scale]"
    read -r "wall[vtt$scale]" "memory[vtt$scale]"
  } < <(python3 bench/measure.py "$runs" "$limit" "$work/out" \
    -- "$hlsvtt" -q -t 10 -f OUT "$doc.ttml" -- "$hlsvtt" -q -t 10 -f OUT "$doc.vtt")
  row "ttml$scale" "hlsvtt, TTML source, $name" "$doc.ttml"
  row "vtt$scale" "hlsvtt, the same cues as WebVTT, $name" "$doc.vtt"
done
read -r "wall[imsc]" "memory[imsc]" < <(python3 bench/measure.py "$runs" "$limit" "$work/out" \
  -- node bench/imsc_events.js "$work/x1/doc.ttml" 1)
row imsc "imsc under Node: parse and list time events (whole process), $paragraphs paragraphs" \
  "$work/x1/doc.ttml"
# Inside their processes, in five rounds of one run of each program (each timing $runs readings),
# so that the machine's pace weighs on both alike; the ratio is the median of the rounds'.
ratios=() insides=() ourses=()
for round in 1 2 3 4 5; do
  read -r inside events <<<"$(node bench/imsc_events.js "$work/x1/doc.ttml" "$runs")"
  read -r ours cues <<<"$("$reader" "$work/x1/doc.ttml" "$runs")"
  insides+=("$inside") ourses+=("$ours")
  ratios+=("$(awk -v a="$inside" -v o="$ours" 'BEGIN { printf "%.1f", a / o }')")
done
sorted() { printf '%s\n' "$@" | sort -g | paste -sd ' ' -; }
inside_ratio=$(printf '%s\n' "${ratios[@]}" | sort -g | sed -n 3p)
echo
echo "Inside one process, $paragraphs paragraphs (median of $runs readings, five rounds): imsc in"
echo "Node parses and lists $events time events in $(sorted "${insides[@]}") s; hlsvtt's reader"
echo "reads and builds $cues cues in $(sorted "${ourses[@]}") s; ratios $(sorted "${ratios[@]}")."
echo
awk -v t="${wall[ttml1]}" -v v="${wall[vtt1]}" -v i="${wall[imsc]}" -v r="$inside_ratio" \
  -v m1="${memory[ttml1]}" -v s1="${size[ttml1]}" -v m10="${memory[ttml10]}" \
  -v s10="${size[ttml10]}" -v p="$paragraphs" 'BEGIN {
  printf "- TTML over WebVTT, %d paragraphs: %.2fx (aim: at most 1.2x)\n", p, t / v
  printf "- imsc over hlsvtt, whole processes (imsc only parsing, hlsvtt segmenting): %.1fx\n", i / t
  printf "- imsc over hlsvtt, inside the process (parsing and listing against reading and building): %.1fx, the median of five rounds (aim: at least 10x)\n", r
  printf "- peak memory over source + 16 MiB: %.1f of %.1f MiB (%d paragraphs), %.1f of %.1f MiB (%d)\n",
    m1 / 1024, (s1 + 16 * 1048576) / 1048576, p, m10 / 1024, (s10 + 16 * 1048576) / 1048576, p * 10
}'

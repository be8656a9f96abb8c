#!/usr/bin/env bash
# Benchmark: segmenting a 100 MB source in Windows-1252, converted with --source-encoding, against
# the same text in UTF-8, side by side in one run, output on tmpfs. With 10-second segments the
# run mostly writes files; with one-hour segments it mostly reads, so conversion weighs most.
# Prints a Markdown table of median wall time and peak memory.
# Usage: bench/encodings.sh [runs] [cues]   (default 5 runs and 1,300,000 cues, about 100 MB)
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-5}"
cues="${2:-1300000}"
scripts/build.sh normal >/dev/null

work=/dev/shm/hlsvtt-bench-encodings
rm -rf "$work" && mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
hlsvtt="$PWD/build/hlsvtt"
limit=300

# The generator's words include some Windows-1252 has no characters for: they are dropped, and
# the UTF-8 source is made back from the Windows-1252 one, so that both hold the same text.
python3 ../shared/tools/gen_vtt.py "$cues" "$work/gen.vtt"
iconv -c -f UTF-8 -t WINDOWS-1252 "$work/gen.vtt" >"$work/cp1252.vtt" || true
iconv -f WINDOWS-1252 -t UTF-8 "$work/cp1252.vtt" >"$work/utf8.vtt"
rm "$work/gen.vtt"

measure() {
  python3 bench/measure.py "$runs" "$limit" "$work/out" -- "$@"
}

echo "| source | -t | options | size (MB) | wall (s) | peak memory (MiB) | vs UTF-8 |"
echo "|---|---|---|---|---|---|---|"
row() {
  local name="$1" input="$2"
  shift 2
  read -r t m <<<"$(measure "$hlsvtt" -q -t "$grid" -f OUT "$@" "$input")"
  [ -z "$base" ] && base="$t"
  awk -v n="$name" -v g="$grid" -v o="$*" -v s="$(stat -c %s "$input")" -v t="$t" -v m="$m" \
    -v b="$base" 'BEGIN { printf "| %s | %s | %s | %.1f | %.3f | %.1f | %.2fx |\n", n, g,
                          o == "" ? "-" : o, s / 1e6, t, m / 1024, t / b }'
}
for grid in 10 3600; do
  base=""
  row "UTF-8" "$work/utf8.vtt"
  row "UTF-8" "$work/utf8.vtt" --source-encoding=auto
  row "Windows-1252" "$work/cp1252.vtt" --source-encoding=windows-1252
  row "Windows-1252" "$work/cp1252.vtt" --source-encoding=auto
  row "Windows-1252 (bytes kept)" "$work/cp1252.vtt"
done

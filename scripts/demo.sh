#!/usr/bin/env bash
# Builds hlsvtt and segments the bundled example into /tmp/hlsvtt-demo with 10-second segments.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh normal >/dev/null
out=/tmp/hlsvtt-demo
rm -rf "$out" && mkdir -p "$out"
build/hlsvtt -t 10 -f "$out" examples/sample.vtt
echo
echo "== $out"
ls "$out"
echo "== $out/prog_index.m3u8"
cat "$out/prog_index.m3u8"

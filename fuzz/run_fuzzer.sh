#!/usr/bin/env bash
# Runs one fuzz target for a bounded time, seeded from a directory of sample inputs. Usage:
#   run_fuzzer.sh <fuzzer binary> <corpus dir> [seconds]
set -euo pipefail
binary="$1"; seeds="$2"; seconds="${3:-${FUZZ_SECONDS:-30}}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/corpus"
if [ -d "$seeds" ]; then
  find "$seeds" -type f ! -name 'README*' -size -64k -exec cp -t "$work/corpus" {} + 2>/dev/null || true
fi
"$binary" -max_total_time="$seconds" -max_len=8192 -timeout=10 -rss_limit_mb=2048 \
  -print_final_stats=1 "$work/corpus" 2>"$work/log" || { tail -n 60 "$work/log"; exit 1; }
grep -m1 'INITED' "$work/log" || true
grep -E 'stat::number_of_executed_units|Done' "$work/log" | tail -n 2

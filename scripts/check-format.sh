#!/usr/bin/env bash
# Fails, listing the offenders, when a tracked C or C++ file differs from what clang-format makes
# of it (the style is .clang-format at the top of the tree). Fix with: clang-format -i <file>...
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files -- '*.c' '*.cc' '*.cpp' '*.h' '*.hpp')
offenders=()
for file in "${files[@]}"; do
  clang-format --dry-run --Werror "$file" >/dev/null 2>&1 || offenders+=("$file")
done
if [ "${#offenders[@]}" -ne 0 ]; then
  echo "not formatted with clang-format (${#offenders[@]} of ${#files[@]} files):" >&2
  printf '  %s\n' "${offenders[@]}" >&2
  exit 1
fi
echo "clang-format: ${#files[@]} files formatted"

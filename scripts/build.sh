#!/usr/bin/env bash
# Builds hlsvtt. Usage: scripts/build.sh [normal|sanitize]  (default normal)
set -euo pipefail
cd "$(dirname "$0")/.."
kind="${1:-normal}"
jobs="$(nproc)"
case "$kind" in
  normal)
    cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
    cmake --build build -j "$jobs" ;;
  sanitize)
    # clang, so that the fuzz targets build in the same tree.
    CC=clang CXX=clang++ cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug \
      -DHLSVTT_SANITIZE=ON -DHLSVTT_FUZZ=ON >/dev/null
    cmake --build build-asan -j "$jobs" ;;
  *) echo "usage: $0 [normal|sanitize]" >&2; exit 2 ;;
esac

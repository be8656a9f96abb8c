#!/usr/bin/env bash
# Checks that every C/C++ file is formatted, then builds hlsvtt twice (normal, and
# AddressSanitizer + UndefinedBehaviorSanitizer) and runs the whole test suite in both. Any
# unformatted file, failure or sanitizer report fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
echo "== format"
scripts/check-format.sh
scripts/install-deps.sh
scripts/install-clients.sh
jobs="$(nproc)"

echo "== normal build"
scripts/build.sh normal
(cd build && ctest -j "$jobs" --output-on-failure)

echo "== sanitizer build"
scripts/build.sh sanitize
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:halt_on_error=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
(cd build-asan && ctest -j "$jobs" --output-on-failure)

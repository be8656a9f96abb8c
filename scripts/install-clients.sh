#!/usr/bin/env bash
# Installs the npm packages the real-client and playback tests use, from the committed lock files.
# No browser is downloaded: the playback tests drive Debian's chromium (scripts/install-deps.sh).
set -euo pipefail
export PUPPETEER_SKIP_DOWNLOAD=1
root="$(cd "$(dirname "$0")/.." && pwd)"
for dir in tests/clients tests/players; do
  cd "$root/$dir"
  if [ ! -d node_modules ] || [ package-lock.json -nt node_modules ]; then
    npm ci --silent --no-audit --no-fund >/dev/null
    touch node_modules
  fi
done

#!/usr/bin/env bash
# Installs the npm packages the real-client tests use, from the committed lock file.
set -euo pipefail
cd "$(dirname "$0")/../tests/clients"
if [ ! -d node_modules ] || [ package-lock.json -nt node_modules ]; then
  npm ci --silent --no-audit --no-fund >/dev/null
  touch node_modules
fi

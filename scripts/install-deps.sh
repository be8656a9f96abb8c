#!/usr/bin/env bash
# Installs what building and testing hlsvtt needs, through apt-get. Idempotent: when every
# package is already there it prints nothing and changes nothing.
set -euo pipefail
packages=(
  build-essential cmake clang lld libclang-rt-dev     # compilers, sanitizers, libFuzzer
  libssl-dev zlib1g-dev                                # AES-128 (libcrypto), movie headers
  libicu-dev                                           # Unicode conversion, language data
  libexpat1-dev                                        # XML of timed-text sources
  libgtest-dev libgmock-dev                            # unit tests
  clang-format                                         # formatting
  ffmpeg nodejs npm python3 python3-webvtt             # real clients and benchmark peers
  chromium fonts-dejavu-core                           # browser and cue font for the player tests
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
# Debian's nodejs may come from another origin that bundles npm; either satisfies us.
if command -v npm >/dev/null 2>&1; then
  missing=("${missing[@]/npm}")
fi
read -r -a missing <<<"${missing[*]}"
[ "${#missing[@]}" -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
echo "installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null

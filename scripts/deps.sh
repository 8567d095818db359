#!/usr/bin/env bash
# Installs what the build and the tests need when it is missing.
# Debian packages only; runs apt-get as root (or through sudo) when needed.
set -euo pipefail
packages=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev python3 clang libclang-rt-14-dev libssl-dev curl tzdata locales)
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}"
fi

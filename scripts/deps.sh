#!/usr/bin/env bash
# Installs the Debian packages a job needs when they are missing, running
# apt-get as root (or through sudo).
#   deps.sh host   what building and running halvern needs
#   deps.sh test   that and what the tests need (the default)
set -euo pipefail
# The host reads and writes pictures through libpng, libtiff and libjpeg.
host=(cmake g++ make pkg-config libjpeg62-turbo-dev libpng-dev libtiff-dev)
# One package a line, in order, so that additions merge cleanly.
test=(
  clang
  curl
  doxygen
  libbenchmark-dev
  libclang-rt-14-dev
  libgtest-dev
  librsvg2-bin
  libssl-dev
  locales
  nginx-light
  python3
  python3-pil
  tzdata
  zlib1g-dev
)
case "${1:-test}" in
  host) packages=("${host[@]}") ;;
  test) packages=("${host[@]}" "${test[@]}") ;;
  *) echo "usage: deps.sh [host|test]" >&2; exit 2 ;;
esac
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

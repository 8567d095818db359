#!/usr/bin/env bash
# check_install.sh BUILD_DIR CONSUMER_SOURCE
set -euo pipefail
build=$1 consumer=$2
work=$(mktemp -d /tmp/halv_install_XXXXXX)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null

# find_package
cmake -S "$consumer" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib" "$work/cmake-build/consumer" | grep -qx "consumer ok: 3"

# pkg-config
export PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig"
cc -std=c11 -Wall -Werror "$consumer/main.c" -o "$work/pc-consumer" $(pkg-config --cflags --libs dpk_hvsup)
LD_LIBRARY_PATH="$work/prefix/lib" "$work/pc-consumer" | grep -qx "consumer ok: 3"
echo "install check passed"

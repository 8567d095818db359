#!/usr/bin/env bash
# Builds the library, the sample bundles and the command-line host in a
# build directory of its own (build-halvern), and runs the main job:
# halvern demo, or the halvern command given as arguments.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh host
echo "building halvern in build-halvern (the first build takes a few minutes)" >&2
cmake -S . -B build-halvern -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHALV_BUILD_TESTS=OFF >/dev/null
cmake --build build-halvern -j"$(nproc)" --target halvern >/dev/null
if [ $# -eq 0 ]; then set -- demo; fi
exec ./build-halvern/tools/halvern "$@"

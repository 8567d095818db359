#!/usr/bin/env bash
# Builds the library and the command-line host, and runs the main job:
# halvern demo, or the halvern command given as arguments.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target halvern
if [ $# -eq 0 ]; then set -- demo; fi
./build/tools/halvern "$@"

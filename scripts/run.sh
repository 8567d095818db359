#!/usr/bin/env bash
# Builds the library and the command-line host, and runs the main job.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target halvern
./build/tools/halvern "$@"

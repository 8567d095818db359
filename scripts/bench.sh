#!/usr/bin/env bash
# Builds the benchmarks (installing their outside baselines first) and runs
# them: every bench/bench_*.cpp, or the ones named (bash scripts/bench.sh print).
# Each runs three times over and reports medians, from which the ratios are
# taken; BENCH_FLAGS replaces those flags (BENCH_FLAGS= for single runs).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh
mapfile -t packages < <(grep -v '^#' bench/packages.txt | grep .)
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
cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DHALV_BUILD_BENCH=ON -DHALV_BUILD_TESTS=OFF >/dev/null
if [ $# -eq 0 ]; then
  set -- $(ls bench/bench_*.cpp | sed 's|bench/bench_\(.*\)\.cpp|\1|')
fi
targets=()
for name in "$@"; do targets+=("bench_${name}"); done
cmake --build build-bench -j"$(nproc)" --target "${targets[@]}"
for name in "$@"; do
  echo "== bench_${name} =="
  # shellcheck disable=SC2086
  "build-bench/bench/bench_${name}" ${BENCH_FLAGS---benchmark_repetitions=3 --benchmark_report_aggregates_only=true}
done

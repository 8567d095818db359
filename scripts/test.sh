#!/usr/bin/env bash
# Builds and runs every test: a normal build, an ASan+UBSan build, and a
# ThreadSanitizer build of the concurrency tests.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh test
jobs=$(nproc)

run_suite() { # build-dir sanitizer build-target [ctest args...]
  local dir=$1 sanitize=$2 target=$3; shift 3
  echo "== ${dir} (${sanitize:-plain}) =="
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHALV_SANITIZE="$sanitize" >/dev/null
  cmake --build "$dir" -j"$jobs" ${target:+--target "$target"}
  ctest --test-dir "$dir" --output-on-failure -j"$jobs" "$@"
}

run_suite build "" ""
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite build-asan address ""
# The ThreadSanitizer pass: every test program that starts a thread.
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  run_suite build-tsan thread halv_threaded_tests -L threaded

#!/usr/bin/env bash
# Builds and runs every test: a normal build, an ASan+UBSan build, and a
# ThreadSanitizer build of the concurrency tests.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/deps.sh
jobs=$(nproc)

run_suite() { # build-dir sanitizer target-pattern [ctest args...]
  local dir=$1 sanitize=$2 only=$3; shift 3
  echo "== ${dir} (${sanitize:-plain}) =="
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHALV_SANITIZE="$sanitize" >/dev/null
  if [ -z "$only" ]; then
    cmake --build "$dir" -j"$jobs"
  else
    # Build just the test programs the pass runs (and what they link).
    local targets
    targets=$(ls tests/ | sed -n "s/^\(${only}\)\.cpp$/\1/p")
    # The build tree's registry names the sample bundles: build them too.
    targets="$targets $(ls -d plugins/*/ | sed 's|plugins/\(.*\)/|dpk_\1|')"
    cmake --build "$dir" -j"$jobs" --target $targets
  fi
  ctest --test-dir "$dir" --output-on-failure -j"$jobs" "$@"
}

run_suite build "" ""
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite build-asan address ""
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  run_suite build-tsan thread "test_thread_[a-z_]*" -L thread

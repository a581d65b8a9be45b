#!/usr/bin/env bash
# Installs what is missing, builds everything with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs every test.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
build="$root/build/sanitize"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Debug -DORVID_SANITIZE=ON -DORVID_BUILD_BENCHMARKS=ON
cmake --build "$build" -j"$(nproc)"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
ctest --test-dir "$build" --output-on-failure -j"$(nproc)" --timeout 300

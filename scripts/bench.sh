#!/usr/bin/env bash
# Builds the benchmarks in Release and runs each of them once.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
build="$root/build/bench"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DORVID_BUILD_TESTS=ON -DORVID_BUILD_BENCHMARKS=ON >/dev/null
cmake --build "$build" -j"$(nproc)"
for program in "$build"/bench/orvid_*_bench; do
  echo "== $(basename "$program")"
  "$program" "$@"
done

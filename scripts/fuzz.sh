#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang and runs each one for SECONDS
# (default 60), starting from the seeds the target writes itself. Exits non-zero
# when any target finds a crash, a sanitizer report or a broken rule; the input
# that did it is kept in build/fuzz/findings/TARGET/.
#   usage: scripts/fuzz.sh [SECONDS]
set -euo pipefail
seconds=${1:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build/fuzz"
compiler=clang++
command -v "$compiler" >/dev/null || { echo "fuzz.sh: $compiler not found (apt-get install clang)" >&2; exit 2; }

cmake -S "$root/fuzz" -B "$build" -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$build" -j"$(nproc)"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
status=0
for target in "$build"/*_fuzz; do
  [ -x "$target" ] || continue
  name=$(basename "$target")
  corpus="$build/corpus/$name"
  findings="$build/findings/$name"
  log="$build/$name.log"
  mkdir -p "$corpus" "$findings"
  "$target" --write-seeds "$corpus"
  if "$target" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$findings/" "$corpus" >"$log" 2>&1; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    echo "$name: ${runs:-?} executions in ${seconds}s, no findings"
  else
    echo "$name: FINDING (log: $log, inputs: $findings)"
    grep -E 'ERROR|broken:|runtime error|SUMMARY' "$log" | head -5 || true
    status=1
  fi
done
exit $status

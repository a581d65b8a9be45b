#!/usr/bin/env bash
# Installs what is missing, builds the orvid command-line tool (Release) and runs
# its built-in demonstration. Arguments, if any, are passed to orvid instead.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/install-deps.sh"
build="$root/build/release"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DORVID_BUILD_TESTS=OFF -DORVID_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$build" --target orvid -j"$(nproc)"
if [ $# -eq 0 ]; then
  exec "$build/tools/orvid/orvid" demo
fi
exec "$build/tools/orvid/orvid" "$@"

#!/usr/bin/env bash
# Runs every benchmark program built in the given build folder.
set -euo pipefail
build=${1:-build/bench}
export OMBRELO_LOG=error
for program in "$build"/bench/bench_*; do
  [ -x "$program" ] || continue
  echo "== $(basename "$program")"
  "$program" --benchmark_min_time=0.2
done

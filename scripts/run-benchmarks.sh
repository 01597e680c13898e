#!/usr/bin/env bash
# Runs every benchmark program built in the given build folder, prints each
# result beside its target, then times whole commands on a replayed year.
# Reports misses; asserts nothing.
set -euo pipefail
build=${1:-build/bench}
export OMBRELO_LOG=error
results="$build/results"
rm -rf "$results"
mkdir -p "$results"
for program in "$build"/bench/bench_*; do
  [ -x "$program" ] || continue
  echo "== $(basename "$program")"
  "$program" --benchmark_min_time=0.5 --benchmark_out="$results/$(basename "$program").json" \
    --benchmark_out_format=json
done
echo "== targets"
python3 bench/report.py "$results"/*.json
echo "== whole commands"
python3 bench/commands-bench.py --ombrelo "$build/src/app/ombrelo"

#!/usr/bin/env bash
# Times `ombrelo replay` on a generated month (about 20,000 events) into a fresh
# database, with private settings. Target: under 5 s.
#   bench/replay-bench.sh [path/to/ombrelo] [days]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
ombrelo=${1:-build/release/src/app/ombrelo}
days=${2:-30}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$here/make-replay.py" --days "$days" > "$work/month.jsonl"
start=$(date +%s.%N)
XDG_CONFIG_HOME="$work/config" "$ombrelo" --db "$work/bench.sqlite" replay "$work/month.jsonl"
end=$(date +%s.%N)
printf 'replay of %s days: %.2f s\n' "$days" "$(echo "$end - $start" | bc)"

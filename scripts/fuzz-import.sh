#!/usr/bin/env bash
# Fuzzes the CSV import (fuzz/ImportFuzz.cpp) under AddressSanitizer and
# UndefinedBehaviorSanitizer, on demand: `make test` does not run it.
#
#   scripts/fuzz-import.sh [SECONDS] [RUNS] [-- LIBFUZZER_OPTIONS...]
#
# SECONDS (default 60) bounds the time; RUNS, when given and not 0, the number
# of executions instead. Crashing inputs are written to build/fuzz/artifacts/,
# the whole output to build/fuzz/last-run.log.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
runs=${2:-0}
shift $(( $# < 2 ? $# : 2 ))
[ "${1:-}" = "--" ] && shift

out=build/fuzz
seeds=fuzz/corpus
cxx=${CXX:-clang++}

if ! command -v "$cxx" >/dev/null 2>&1; then
  echo "fuzz-import: $cxx not found; install the Debian package clang (sudo apt-get install clang)." >&2
  exit 1
fi
mkdir -p "$out/obj" "$out/corpus" "$out/artifacts"
# libFuzzer ships apart from the compiler in Debian (libclang-rt-N-dev).
probe='extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }'
if ! echo "$probe" | "$cxx" -x c++ - -fsanitize=fuzzer -o "$out/probe" 2>/dev/null; then
  major=$("$cxx" -dumpversion | cut -d. -f1)
  echo "fuzz-import: $cxx cannot link libFuzzer; install the Debian packages clang and libclang-rt-$major-dev." >&2
  exit 1
fi
rm -f "$out/probe"

# Only the import code gets coverage feedback; what it calls in support/ is
# sanitized but not instrumented, so the fuzzer steers by the parsers alone.
sanitize=(-std=c++20 -g -O1 -fno-omit-frame-pointer -fsanitize=address,undefined -fno-sanitize-recover=undefined)
flags=(-Isrc $(pkg-config --cflags spdlog fmt icu-uc icu-i18n 2>/dev/null))
objects=()
build() {  # source, extra flags...
  local source=$1 object="$out/obj/$(basename "${1%.cpp}").o"
  shift
  if [ ! -f "$object" ] || [ "$source" -nt "$object" ] || [ -n "$(find src/import src/support -newer "$object" -name '*.h')" ]; then
    echo "  $source"
    "$cxx" "${sanitize[@]}" "$@" "${flags[@]}" -c "$source" -o "$object"
  fi
  objects+=("$object")
}
echo "fuzz-import: building $out/import-fuzz"
for source in src/import/CSVReader.cpp src/import/ImportParse.cpp src/import/TextDecoding.cpp \
  src/import/ImportMapping.cpp src/import/ImportReader.cpp fuzz/ImportFuzz.cpp; do
  build "$source" -fsanitize=fuzzer-no-link
done
for source in src/support/Fold.cpp src/support/LocalTime.cpp src/support/L10n.cpp src/support/Preferences.cpp \
  src/support/Log.cpp; do
  build "$source"
done
"$cxx" "${sanitize[@]}" -fsanitize=fuzzer "${objects[@]}" -o "$out/import-fuzz" \
  -lspdlog -lfmt -licui18n -licuuc -licudata -pthread

# Seeds: small exports as each tracker writes them. Written only when absent,
# so that seeds added by hand stay.
mkdir -p "$seeds"
seed() {  # name, printf format
  [ -f "$seeds/$1" ] || printf "$2" >"$seeds/$1"
}
seed toggl.csv 'User,Email,Client,Project,Task,Description,Billable,Start date,Start time,End date,End time,Duration,Tags\r\nAnne,anne@example.org,Studio Brume,Maquettes appli,,Ecrans de connexion,Yes,2024-03-04,09:15:00,2024-03-04,11:45:00,02:30:00,\r\nAnne,anne@example.org,-,Interne,,"Revue, notes ""v2""",No,2024-03-31,01:30:00,2024-03-31,03:30:00,01:00:00,\r\n'
seed french.csv 'Date de début;Heure de début;Heure de fin;Durée;Client;Projet;Description;Facturable\n04/03/2024;09:00;12:30;3,5;Studio Brume;Site vitrine;Intégration;Oui\n05/03/2024;22:00;01:15;;Atelier Nord;Refonte;"Nuit; urgente";Non\n27/10/2024;02:30;02:45;0,25;;;;\n'
seed timing.csv 'Title,Notes,Project,Start Date,End Date,Duration,Billing Status\nMaquettes,,Studio Brume ▸ Maquettes appli ▸ Écrans,2024-03-04 09:00:00 +0100,2024-03-04 10:30:00 +0100,1:30:00,Billable\nCourriel,Réponses,Interne › Admin,2024-03-04T13:00:00Z,2024-03-04T13:20:00Z,0:20:00,Not billable\n'
seed rize.csv 'Title,Start Time,End Time,Duration,Project,Notes\nFocus session,03/04/2024 09:05 AM,03/04/2024 10:35 AM,1h 30m,Refonte,\nMeeting,03/14/2024 2:00 PM,03/14/2024 2:45 PM,45 min,,Weekly\n'
seed harvest.csv 'Date,Client,Project,Project Code,Task,Notes,Hours,Hours Rounded,Billable?,Invoiced?,First Name\n2024-03-04,Studio Brume,Maquettes appli,MB-1,Design,Écrans,2.5,2.5,Yes,No,Anne\n2024-03-04,Studio Brume,Maquettes appli,MB-1,Design,,"1,25",1.25,Yes,No,Anne\n2024-03-05,Atelier Nord,Refonte,,Dev,,0.75,0.75,No,No,Anne\n'
seed windows-1252.csv 'Date;D\xe9but;Fin;Projet;T\xe2che;Facturable\r\n04.03.2024;08:00;09:30;Caf\xe9 \x80;R\xe9union \x93client\x94;Oui\r\n'

options=(-max_len=4096 -timeout=5 -print_final_stats=1 -dict=fuzz/import.dict -artifact_prefix="$out/artifacts/")
if [ "$runs" != 0 ]; then options+=(-runs="$runs"); else options+=(-max_total_time="$seconds"); fi
log="$out/last-run.log"
echo "fuzz-import: running (${options[*]} $*), log in $log"
set +e
OMBRELO_LOG=off "$out/import-fuzz" "${options[@]}" "$@" "$out/corpus" "$seeds" 2>&1 | tee "$log" |
  grep -vE '^#[0-9]+[[:space:]]+(NEW|REDUCE) |NEW_FUNC' | sed '/Recommended dictionary/,/End of recommended dictionary/d'
status=${PIPESTATUS[0]}
set -e
# The final stats; -fork mode prints none, only its progress lines ("#N: … exec/s E").
stat() { grep -oE "stat::$1:[[:space:]]*[0-9]+" "$log" | tail -1 | grep -oE '[0-9]+$'; }
executions=$(stat number_of_executed_units || grep -oE '^#[0-9]+' "$log" | tail -1 | tr -d '#' || echo '?')
speed=$(stat average_exec_per_sec || grep -oE 'exec/s:? [0-9]+' "$log" | tail -1 | grep -oE '[0-9]+$' || echo '?')
echo "fuzz-import: $executions executions, $speed exec/s, exit status $status"
exit "$status"

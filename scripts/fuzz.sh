#!/usr/bin/env bash
# Builds the libFuzzer harnesses (preset "fuzz": clang, AddressSanitizer,
# UndefinedBehaviorSanitizer) and runs each for SECONDS (default 30), one
# after another, or only the harnesses named after it:
#   scripts/fuzz.sh [SECONDS] [fuzz_examiner fuzz_resource_fork fuzz_appledouble fuzz_property_list]
# Each harness keeps its corpus in build/fuzz/corpus/NAME (seeded from
# tests/data) and grows it run after run; a crash or a broken invariant stops
# the script with the input saved under build/fuzz/findings/NAME/.
# FUZZ_JOBS=N runs N processes per harness (libFuzzer's -fork); FUZZ_OPTIONS
# adds libFuzzer options (FUZZ_OPTIONS=-runs=10000000 stops at that count).
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-30}"
shift || true
harnesses=("$@")
if [ "${#harnesses[@]}" -eq 0 ]; then
  harnesses=(fuzz_examiner fuzz_resource_fork fuzz_appledouble fuzz_property_list)
fi

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

build=build/fuzz
data=tests/data
seeds="$build/seeds"
rm -rf "$seeds"
mkdir -p "$seeds"/{fuzz_examiner,fuzz_resource_fork,fuzz_appledouble,fuzz_property_list}

# The examiner's first byte says how the rest is laid out (see fuzz_examiner.cpp).
seed() { # harness name layout-byte file
  { [ -n "$3" ] && printf "\\x$3"; cat "$4"; } >"$seeds/$1/$2"
}
seed fuzz_examiner ttf 00 "$data/fuzz/DejaVuSans-Ab.ttf"
seed fuzz_examiner otf 01 "$data/fuzz/P052-Ab.otf"
seed fuzz_examiner ttc 02 "$data/fuzz/Pair-Ab.ttc"
seed fuzz_examiner dfont 03 "$data/fonts/DejaVuSans-suitcase.rsrc"
seed fuzz_examiner suitcase 04 "$data/fonts/DejaVuSans-suitcase.rsrc"
seed fuzz_examiner sfnt-dfont 03 "$data/fuzz/DejaVuSans-Ab-sfnt-suitcase.rsrc"
seed fuzz_examiner sfnt-suitcase 04 "$data/fuzz/DejaVuSans-Ab-sfnt-suitcase.rsrc"
seed fuzz_examiner lwfn 05 "$data/fuzz/StandardSymbols-LWFN.rsrc"
seed fuzz_examiner sidecar 06 "$data/fuzz/StandardSymbols-LWFN.appledouble"
# PC Type 1: a PFB made by t1binary from Debian's URW outline, and its metrics.
urw=/usr/share/fonts/type1/urw-base35
if [ -r "$urw/StandardSymbolsPS.t1" ] && command -v t1binary >/dev/null; then
  t1binary "$urw/StandardSymbolsPS.t1" "$seeds/StandardSymbolsPS.pfb"
  seed fuzz_examiner pfb 07 "$seeds/StandardSymbolsPS.pfb"
  seed fuzz_examiner afm 08 "$urw/StandardSymbolsPS.afm"
  rm -f "$seeds/StandardSymbolsPS.pfb"
fi
seed fuzz_resource_fork suitcase "" "$data/fonts/DejaVuSans-suitcase.rsrc"
seed fuzz_resource_fork lwfn "" "$data/fuzz/StandardSymbols-LWFN.rsrc"
seed fuzz_resource_fork sfnt-suitcase "" "$data/fuzz/DejaVuSans-Ab-sfnt-suitcase.rsrc"
seed fuzz_appledouble lwfn "" "$data/fuzz/StandardSymbols-LWFN.appledouble"
seed fuzz_property_list index "" "$data/fuzz/quarantine-index.plist"

# Allocation stacks and a large free-memory quarantine cost a tenth of the
# speed; a finding is re-run with the defaults to get its full report.
export ASAN_OPTIONS="${ASAN_OPTIONS:-malloc_context_size=0:quarantine_size_mb=8}"

status=0
for name in "${harnesses[@]}"; do
  corpus="$build/corpus/$name"
  findings="$build/findings/$name/"
  mkdir -p "$corpus" "$findings"
  # Fonts and forks need room (an LWFN seed is 35 KB); a property list shows
  # its structure in a few KB, and longer ones only slow each run.
  max_len=65536
  [ "$name" = fuzz_property_list ] && max_len=8192
  options=(-max_total_time="$seconds" -max_len="$max_len" -rss_limit_mb=4096 -timeout=25
    -print_final_stats=1 -artifact_prefix="$findings")
  # shellcheck disable=SC2206 # options are words on purpose
  options+=(${FUZZ_OPTIONS:-})
  if [ -n "${FUZZ_JOBS:-}" ]; then
    options+=(-fork="$FUZZ_JOBS" -ignore_crashes=0)
  fi
  echo "== $name for ${seconds}s"
  if ! "$build/fuzz/$name" "${options[@]}" "$corpus" "$seeds/$name"; then
    echo "== $name found a problem: see $findings" >&2
    status=1
  fi
done
exit "$status"

#!/usr/bin/env bash
# The deep check against the OpenType Sanitizer (ots-sanitize), on the same files:
#   - a damaged set made from Debian's TrueType/OpenType fonts (a third with 20 byte flips past
#     the table directory, a third cut short, a third with a 256-byte run of zeros), seeded;
#   - every TrueType/OpenType file under /usr/share/fonts as Debian ships it.
# Prints how many files each rejects, the misses each way, the findings on the shipped
# fonts, and fonts/s of both (one thread each; ots-sanitize runs once per file, as it must).
#   benchmarks/deepcheck-vs-sanitizer.sh [BENCH] [COUNT] [SEED]
#   (default: build/default/bin/bench_deepcheck 300 23)
# Needs opentype-sanitizer and python3. Figures, not a test.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
bench="$(realpath "${1:-$root/build/default/bin/bench_deepcheck}")"
count="${2:-300}"
seed="${3:-23}"
work="${QV_BENCH_DEEP:-/tmp/qv-bench-deepcheck}"
command -v ots-sanitize >/dev/null || { echo "ots-sanitize missing: apt-get install opentype-sanitizer" >&2; exit 2; }
rm -rf "$work"
mkdir -p "$work/damaged"

find /usr/share/fonts -type f \( -iname '*.ttf' -o -iname '*.otf' -o -iname '*.ttc' \) | LC_ALL=C sort >"$work/shipped.txt"
echo "shipped TrueType/OpenType files: $(wc -l <"$work/shipped.txt")"

python3 - "$work/shipped.txt" "$work/damaged" "$count" "$seed" <<'PY'
import random, struct, sys, os
paths = [p for p in open(sys.argv[1]).read().split('\n') if p and not p.lower().endswith('.ttc')]
out, count, rng = sys.argv[2], int(sys.argv[3]), random.Random(int(sys.argv[4]))
for i in range(count):
    src = rng.choice(paths)
    data = bytearray(open(src, 'rb').read())
    start = 12 + 16 * struct.unpack('>H', data[4:6])[0]
    kind = ('flip', 'cut', 'zero')[i % 3]
    if kind == 'flip':
        for _ in range(20):
            at = rng.randrange(start, len(data))
            data[at] ^= rng.randrange(1, 256)
    elif kind == 'cut':
        data = data[:rng.randrange(start, len(data))]
    else:
        at = rng.randrange(start, max(start + 1, len(data) - 256))
        data[at:at + 256] = bytes(256)
    name = '%03d-%s-%s' % (i, kind, os.path.basename(src))
    open(os.path.join(out, name), 'wb').write(data)
PY
find "$work/damaged" -type f | LC_ALL=C sort >"$work/damaged.txt"

ots_run() { # list -> "rejected paths" file, prints wall seconds
  local list=$1 rejected=$2 start end
  : >"$rejected"
  start=$(date +%s.%N)
  while IFS= read -r f; do
    ots-sanitize "$f" /dev/null >/dev/null 2>&1 || echo "$f" >>"$rejected"
  done <"$list"
  end=$(date +%s.%N)
  echo "$end - $start" | bc -l
}
deep_run() { # list -> "reported paths" file, prints wall seconds
  local list=$1 reported=$2 start end
  start=$(date +%s.%N)
  "$bench" <"$list" >"$reported.all" 2>/dev/null
  end=$(date +%s.%N)
  awk -F'\t' '$1 > 0 { print $2 }' "$reported.all" >"$reported"
  echo "$end - $start" | bc -l
}

n=$(wc -l <"$work/damaged.txt")
ots_s=$(ots_run "$work/damaged.txt" "$work/ots-damaged.txt")
deep_s=$(deep_run "$work/damaged.txt" "$work/deep-damaged.txt")
ots_n=$(wc -l <"$work/ots-damaged.txt")
deep_n=$(wc -l <"$work/deep-damaged.txt")
missed=$(comm -23 "$work/ots-damaged.txt" "$work/deep-damaged.txt" | wc -l)
extra=$(comm -13 "$work/ots-damaged.txt" "$work/deep-damaged.txt" | wc -l)
usable=$(awk -F'\t' '$1 > 0 && $3 !~ /(Damaged|Missing|Glyph|Font Cannot)/' "$work/deep-damaged.txt.all" | wc -l)
echo
echo "damaged set: $n files (seed $seed)"
for kind in flip cut zero; do
  k_all=$(grep -c -- "-$kind-" "$work/damaged.txt" || true)
  k_ots=$(grep -c -- "-$kind-" "$work/ots-damaged.txt" || true)
  k_deep=$(grep -c -- "-$kind-" "$work/deep-damaged.txt" || true)
  echo "  $kind: $k_all files, ots-sanitize rejects $k_ots, deep check reports $k_deep"
done
echo "  ots-sanitize rejects:             $ots_n"
echo "  deep check reports:               $deep_n (of which checksum mismatches only: $usable)"
echo "  rejected by ots, missed by deep:  $missed"
echo "  reported by deep, passed by ots:  $extra"
# What the deep check finds without the checksums: the structure and glyph checks alone.
awk -F'\t' '$1 > 0 && $3 ~ /(Damaged|Missing|Glyph|Font Cannot)/ { print $2 }' "$work/deep-damaged.txt.all" \
  | LC_ALL=C sort >"$work/deep-structural.txt"
echo "  rejected by ots, missed without checksums: $(comm -23 "$work/ots-damaged.txt" "$work/deep-structural.txt" | wc -l)"
comm -23 "$work/ots-damaged.txt" "$work/deep-damaged.txt" | sed 's/^/    missed: /' | head -20

shipped_n=$(wc -l <"$work/shipped.txt")
ots_ship_s=$(ots_run "$work/shipped.txt" "$work/ots-shipped.txt")
deep_ship_s=$(deep_run "$work/shipped.txt" "$work/deep-shipped.txt")
echo
echo "shipped fonts: $shipped_n files"
echo "  ots-sanitize rejects:  $(wc -l <"$work/ots-shipped.txt")"
echo "  deep check reports:    $(wc -l <"$work/deep-shipped.txt")"
awk -F'\t' '$1 > 0 { print "    " $2 ": " $3 }' "$work/deep-shipped.txt.all" | head -20

echo
rate() { echo "scale=1; $1 / $2" | bc -l; }
echo "speed, damaged set:  deep check $(rate "$n" "$deep_s") fonts/s ($deep_s s), ots-sanitize $(rate "$n" "$ots_s") fonts/s ($ots_s s)"
echo "speed, shipped:      deep check $(rate "$shipped_n" "$deep_ship_s") fonts/s ($deep_ship_s s), ots-sanitize $(rate "$shipped_n" "$ots_ship_s") fonts/s ($ots_ship_s s)"

#!/usr/bin/env bash
# Runs every quorvel-cli command over fixed fixture folders (made with tools
# that are not ours) and over /usr/share/fonts, and writes what each printed
# and the trees each left behind into OUT. Two builds compared:
#   scripts/cli-snapshot.sh OLD/quorvel-cli /tmp/old
#   scripts/cli-snapshot.sh NEW/quorvel-cli /tmp/new
#   diff -r /tmp/old /tmp/new
# Dates and times are masked; everything else must match byte for byte.
set -euo pipefail
cli="$(realpath "$1")"
out="$(realpath -m "$2")"
data="$(cd "$(dirname "$0")/.." && pwd)/tests/data"
work=/tmp/qv-cli-snapshot
# The fixture is made once and kept: the tools stamp their sidecars with the
# time, and two runs must start from the same bytes.
fixture_copy=/tmp/qv-cli-snapshot-fixture
rm -rf "$work" "$out"
mkdir -p "$work/home" "$out"
export HOME="$work/home" XDG_DATA_HOME="$work/home/.local/share" XDG_CONFIG_HOME="$work/home/.config"
export LC_ALL=C.UTF-8 TZ=UTC

fixture() { # a folder of sound, damaged, duplicated and orphaned fonts
  local dir=$1 urw=/usr/share/fonts/type1/urw-base35
  mkdir -p "$dir/sound" "$dir/copies" "$dir/damaged" "$dir/postscript" "$dir/suitcases"
  cp /usr/share/fonts/truetype/dejavu/DejaVuSans{,-Bold,-Oblique}.ttf "$dir/sound/"
  cp /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf "$dir/copies/"
  cp /usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf "$dir/copies/Copy of Bold.ttf"
  head -c 700 /usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf >"$dir/damaged/Short.ttf"
  : >"$dir/damaged/Empty.otf"
  head -c 5000 /usr/share/ruby-prawn/fonts/Panic+Sans.dfont >"$dir/damaged/Short.dfont"
  cp /usr/share/ruby-prawn/fonts/Panic+Sans.dfont "$dir/suitcases/Panic.dfont"
  cp "$data/fonts/DejaVuSans-suitcase.rsrc" "$dir/suitcases/DejaVu.dfont"
  # Outlines in AppleDouble sidecars: one with its proper file name, one
  # wrongly named, one orphaned in a folder of its own.
  t1mac --appledouble -o "$dir/postscript/._C059Bol" "$urw/C059-Bold.t1"
  : >"$dir/postscript/C059Bol"
  t1mac --appledouble -o "$dir/postscript/._Wrong Name" "$urw/C059-Italic.t1"
  : >"$dir/postscript/Wrong Name"
  t1mac --appledouble -o "$dir/postscript/._NimbusSan" "$urw/NimbusSans-Regular.t1"
  : >"$dir/postscript/NimbusSan"
  # A bitmap suitcase for two styles of one family, with no outlines beside it.
  local bdf="$work/bdf"
  mkdir -p "$bdf"
  otf2bdf -r 72 -p 10 -l 32_126 /usr/share/fonts/opentype/urw-base35/P052-Roman.otf -o "$bdf/a.bdf" || true
  otf2bdf -r 72 -p 12 -l 32_126 /usr/share/fonts/opentype/urw-base35/P052-Bold.otf -o "$bdf/b.bdf" || true
  (cd "$bdf" && ufond -res a.bdf b.bdf >/dev/null 2>&1)
  cp "$bdf"/*.rsrc "$dir/suitcases/P052.dfont"
}

# A hash of an AppleDouble file without its dates entry (9), which a new
# sidecar stamps with the time it was written.
sidecar_hash() {
  python3 - "$1" <<'PY'
import hashlib, struct, sys
d = open(sys.argv[1], 'rb').read()
h = hashlib.sha256(d[:26])
n = struct.unpack('>H', d[24:26])[0] if len(d) >= 26 else 0
for i in range(n):
    e, o, l = struct.unpack('>III', d[26 + 12 * i:38 + 12 * i])
    if e != 8:
        h.update(struct.pack('>I', e) + d[o:o + l])
print(h.hexdigest()[:16])
PY
}

# A listing of a tree: path, size, content hash, attributes.
tree() {
  (cd "$1" && find . -mindepth 1 | LC_ALL=C sort | while IFS= read -r f; do
    if [ -f "$f" ] && [[ "$(basename "$f")" == ._* ]]; then
      printf '%s %s %s\n' "$f" "$(stat -c %s "$f")" "$(sidecar_hash "$f")"
    elif [ -f "$f" ]; then
      printf '%s %s %s\n' "$f" "$(stat -c %s "$f")" "$(sha256sum <"$f" | cut -c1-16)"
    else
      printf '%s/\n' "$f"
    fi
    getfattr -d -m - --absolute-names -e hex "$f" 2>/dev/null | grep -v '^#' | sed 's/^/    /' || true
  done)
}

mask() { sed -E 's/[0-9]{4}-[0-9]{2}-[0-9]{2}[T ][0-9:.]+Z?/DATE/g; s/[0-9]+(\.[0-9]+)? ?(ms|s)\b/TIME/g'; }

n=0
run() { # name, then the command's arguments
  local name=$1
  shift
  n=$((n + 1))
  {
    echo "\$ quorvel-cli $*"
    set +e
    "$cli" "$@" 2>&1 </dev/null
    echo "exit $?"
    set -e
  } | mask >"$out/$(printf %02d $n)-$name.txt"
}

if [ ! -d "$fixture_copy" ]; then
  fixture "$fixture_copy.new"
  mv "$fixture_copy.new" "$fixture_copy"
fi
cp -a "$fixture_copy" "$work/f"
run scan-text scan "$work/f"
run scan-json scan --json "$work/f"
run examine examine "$work/f"/sound/DejaVuSans.ttf "$work/f"/damaged/Short.ttf "$work/f"/postscript/C059Bol
run examine-json examine --json "$work/f"/suitcases/Panic.dfont "$work/f"/suitcases/DejaVu.dfont
run rsrc rsrc "$work/f"/postscript/C059Bol
run rsrc-json rsrc --json "$work/f"/suitcases/DejaVu.dfont
run diagnose-text diagnose "$work/f"
run diagnose-json diagnose --json "$work/f"
run diagnose-system diagnose --json /usr/share/fonts
run settings settings list

cp -a "$work/f" "$work/r"
run resolve diagnose --resolve --report "$work/r"
tree "$work/r" >"$out/tree-resolved.txt"
run quarantine-list quarantine list
run quarantine-json quarantine list --json
# The id of the first font the quarantine lists (ids do not shift; the first row does).
first_id() { "$cli" quarantine list --json | python3 -c 'import json, sys; print(json.load(sys.stdin)[0]["id"])'; }
run quarantine-restore quarantine restore "$(first_id)"
mkdir -p "$work/elsewhere"
run quarantine-restore-to quarantine restore --to "$work/elsewhere" "$(first_id)"
run quarantine-remove quarantine remove --yes "$(first_id)"
tree "$work/r" >"$out/tree-restored.txt"
tree "$work/elsewhere" >"$out/tree-elsewhere.txt"
run reports-list reports list

cp -a "$work/f" "$work/o"
mkdir -p "$work/lib-copy" "$work/lib-move"
run organize-copy organize --library "$work/lib-copy" --copy "$work/o"
tree "$work/lib-copy" >"$out/tree-library-copy.txt"
run organize-move organize --library "$work/lib-move" --move --name family "$work/o"
tree "$work/lib-move" >"$out/tree-library-move.txt"
tree "$work/o" >"$out/tree-organize-source.txt"
tree "$work/home/.local/share" | grep -v -e '\.lock' -e 'dataSource' -e 'Reports/' >"$out/tree-data.txt" || true

# Help, the plan and the CSV (after the others, so that their numbers stay).
run help --help
run help-diagnose diagnose --help
run help-quarantine-restore quarantine restore --help
run diagnose-plan diagnose --plan "$work/f"
run diagnose-plan-json diagnose --plan --json "$work/f"
run diagnose-only-plan diagnose --resolve --dry-run --only duplicates,repairs "$work/f"
run scan-csv scan --format csv "$work/f"
run diagnose-csv diagnose --format csv "$work/f"
cp -a "$work/f" "$work/p"
run resolve-only diagnose --resolve --yes --only damaged "$work/p"
tree "$work/p" >"$out/tree-resolved-only.txt"
run quarantine-match quarantine list --match sans
run quarantine-restore-match quarantine restore --match sans
run quarantine-remove-all quarantine remove --yes --all
echo "snapshot of $(ls "$out" | wc -l) files in $out"

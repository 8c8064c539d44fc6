#!/usr/bin/env bash
# Builds a tree of font files for the scan benchmark and tests:
#   scripts/make-font-tree.sh DEST [COUNT]
# COUNT files (default 100000) in folders of 100 (DEST/group-NN/family-NNN/),
# all hard links to up to 100 real fonts from /usr/share/fonts (TrueType,
# OpenType, Type 1), so the tree costs only directory entries on disk. Where the
# system fonts cannot be linked (another file system), the first folder holds
# copies and the rest link to those.
set -euo pipefail

if [[ $# -lt 1 || $# -gt 2 ]]; then
  echo "usage: $0 DEST [COUNT]" >&2
  exit 2
fi
dest=$1
count=${2:-100000}
per_folder=100
if ! [[ $count =~ ^[0-9]+$ ]] || (( count < 1 )); then
  echo "$0: COUNT must be a positive number" >&2
  exit 2
fi
if [[ -e $dest ]] && [[ -n $(ls -A "$dest" 2>/dev/null) ]]; then
  echo "$0: $dest exists and is not empty" >&2
  exit 2
fi

mapfile -t fonts < <(find /usr/share/fonts -type f \( -name '*.ttf' -o -name '*.otf' -o -name '*.pfb' \) | sort | head -n 100)
if (( ${#fonts[@]} == 0 )); then
  echo "$0: no fonts found under /usr/share/fonts" >&2
  exit 1
fi

folder_path() {
  printf '%s/group-%02d/family-%03d' "$dest" $(( $1 / 100 )) $(( $1 % 100 ))
}

# The first folder: one entry per slot, cycling through the real fonts.
first=$(folder_path 0)
mkdir -p "$first"
in_first=$(( count < per_folder ? count : per_folder ))
for (( i = 0; i < in_first; i++ )); do
  source=${fonts[i % ${#fonts[@]}]}
  name=$(printf 'Font-%03d.%s' "$i" "${source##*.}")
  ln "$source" "$first/$name" 2>/dev/null || cp "$source" "$first/$name"
done

# Every other folder links to the first one's files.
folders=$(( (count + per_folder - 1) / per_folder ))
for (( f = 1; f < folders; f++ )); do
  folder=$(folder_path "$f")
  mkdir -p "$(dirname "$folder")"
  left=$(( count - f * per_folder ))
  if (( left >= per_folder )); then
    cp -al "$first" "$folder"
  else
    mkdir -p "$folder"
    for name in $(ls "$first" | head -n "$left"); do
      ln "$first/$name" "$folder/$name"
    done
  fi
done

echo "$count font files in $folders folders under $dest"

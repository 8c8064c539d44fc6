#!/usr/bin/env bash
# Builds a tree of font files for the scan benchmark and tests:
#   scripts/make-font-tree.sh DEST [COUNT]
# COUNT files (default 100000) in folders of 100 (DEST/group-NN/family-NNN/),
# copies of the 20 smallest real fonts from /usr/share/fonts. Every entry is a
# file of its own, as a scan takes a file reached under several names (hard
# links) for one file: about 8 KB of disk a file.
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

mapfile -t fonts < <(find /usr/share/fonts -type f \( -name '*.ttf' -o -name '*.otf' -o -name '*.pfb' \) \
  -printf '%s %p\n' | sort -n -k1,1 -k2 | head -n 20 | cut -d' ' -f2-)
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
  cp "$source" "$first/$name"
done

# Every other folder copies the first one's files.
folders=$(( (count + per_folder - 1) / per_folder ))
for (( f = 1; f < folders; f++ )); do
  folder=$(folder_path "$f")
  mkdir -p "$(dirname "$folder")"
  left=$(( count - f * per_folder ))
  if (( left >= per_folder )); then
    cp -a "$first" "$folder"
  else
    mkdir -p "$folder"
    for name in $(ls "$first" | head -n "$left"); do
      cp -a "$first/$name" "$folder/$name"
    done
  fi
done

echo "$count font files in $folders folders under $dest"

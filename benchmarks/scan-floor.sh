#!/usr/bin/env bash
# Prints, in one run, what a scan costs on trees of font files made by
# scripts/make-font-tree.sh (kept under $QV_BENCH_TREES between runs):
#   - files/s of `quorvel-cli scan --jobs 1` and of `fc-scan` on the same tree,
#     and their ratio (best of three, warm cache);
#   - system calls per font file of that scan (strace -f -c);
#   - time and peak memory of scan, diagnose and diagnose --json per tree size;
#   - the speed of 1 job against N.
#   benchmarks/scan-floor.sh [CLI] [SIZES...]   (default: build/default/bin/quorvel-cli 10000 100000)
# Needs strace, fontconfig (fc-scan) and GNU time. Figures, not a test.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cli="$(realpath "${1:-$root/build/default/bin/quorvel-cli}")"
shift || true
sizes=("$@")
[ "${#sizes[@]}" -eq 0 ] && sizes=(10000 100000)
trees="${QV_BENCH_TREES:-/tmp/qv-bench-trees}"
export HOME="$trees/home" XDG_CONFIG_HOME="$trees/home/.config" XDG_DATA_HOME="$trees/home/.local/share"
mkdir -p "$HOME"

best_of_three() { # command... -> best wall seconds
  local best=""
  for _ in 1 2 3; do
    local start end took
    start=$(date +%s.%N)
    "$@" >/dev/null 2>&1 || true
    end=$(date +%s.%N)
    took=$(echo "$end - $start" | bc -l)
    if [ -z "$best" ] || (( $(echo "$took < $best" | bc -l) )); then best=$took; fi
  done
  printf '%.3f' "$best"
}

peak() { # label command... -> "label: S s, M MB"
  local label=$1
  shift
  /usr/bin/time -f "%e %M" -o "$trees/time.txt" "$@" >/dev/null 2>&1 || true
  # GNU time puts "Command exited with non-zero status N" first when it did.
  read -r seconds kilobytes < <(tail -n 1 "$trees/time.txt")
  printf '  %-28s %6.2f s  %7.1f MB\n' "$label" "$seconds" "$(echo "$kilobytes / 1024" | bc -l)"
}

echo "quorvel-cli: $cli"
echo "machine: $(nproc) cores, $(uname -r)"
for size in "${sizes[@]}"; do
  tree="$trees/tree-$size"
  [ -d "$tree" ] || bash "$root/scripts/make-font-tree.sh" "$tree" "$size" >/dev/null
  files=$(find "$tree/" -type f | wc -l)
  echo
  echo "== $files font files ($tree)"
  # Warm the cache (and fontconfig's own) before timing anything.
  "$cli" scan --jobs 1 "$tree" >/dev/null 2>&1 || true
  fc-scan "$tree" >/dev/null 2>&1 || true

  ours=$(best_of_three "$cli" scan --jobs 1 "$tree")
  theirs=$(best_of_three fc-scan "$tree")
  printf '  scan --jobs 1  %8.3f s  %9.0f files/s\n' "$ours" "$(echo "$files / $ours" | bc -l)"
  printf '  fc-scan        %8.3f s  %9.0f files/s\n' "$theirs" "$(echo "$files / $theirs" | bc -l)"
  printf '  ratio          %8.2fx\n' "$(echo "$theirs / $ours" | bc -l)"

  strace -f -c -o "$trees/strace.txt" "$cli" scan --jobs 1 "$tree" >/dev/null 2>&1 || true
  calls=$(awk '$NF == "total" { print $4 }' "$trees/strace.txt")
  printf '  system calls   %8d  (%.2f per font file)\n' "$calls" "$(echo "$calls / $files" | bc -l)"

  peak "scan" "$cli" scan "$tree"
  peak "diagnose" "$cli" diagnose "$tree"
  peak "diagnose --json" "$cli" diagnose --json "$tree"

  for jobs in 1 2 4; do
    took=$(best_of_three "$cli" scan --json --jobs "$jobs" "$tree")
    printf '  scan --json --jobs %-2d %8.3f s\n' "$jobs" "$took"
  done
done

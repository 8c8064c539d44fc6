#!/usr/bin/env bash
# Fails when a source file includes a header of a subsystem above its own, or
# of another subsystem of its own level, or by a relative path; and when src
# holds a folder of no known level. Uses run one way: settings (the base) <-
# platform <- engine <- store <- diagnosis / organizer / reports <- cli / app /
# helpers.
set -euo pipefail
cd "$(dirname "$0")/../src"

level() {
  case "$1" in
    settings) echo 0 ;;
    platform) echo 1 ;;
    engine) echo 2 ;;
    store) echo 3 ;;
    diagnosis | organizer | reports) echo 4 ;;
    cli | app | helpers) echo 5 ;;
    *) echo -1 ;;
  esac
}

status=0
violation() {
  echo "layer violation: $*"
  status=1
}

for folder in */; do
  folder=${folder%/}
  [ "$(level "$folder")" -ge 0 ] || violation "src/$folder is no known subsystem"
done

include='^[^:]*:[0-9]+:[[:space:]]*#[[:space:]]*include[[:space:]]*([<"])([^">]*)[">]'
while IFS= read -r line; do
  [[ $line =~ $include ]] || continue
  header=${BASH_REMATCH[2]}
  case "$header" in
    ../* | ./* | */../*)
      violation "$line (by a relative path)"
      continue
      ;;
  esac
  file=${line%%:*}
  from=${file%%/*}
  to=${header%%/*}
  lf=$(level "$from")
  lt=$(level "$to")
  # A system or library header in angle brackets.
  [ "${BASH_REMATCH[1]}" = "<" ] && [ "$lt" -lt 0 ] && continue
  [ "$from" = "$to" ] && continue
  if [ "$lt" -lt 0 ] || [ "$lf" -lt 0 ] || [ "$lt" -ge "$lf" ]; then
    violation "$line"
  fi
done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"][^">]*/' --include='*.cpp' --include='*.h' -- */)
[ "$status" -eq 0 ] && echo "layers: every include runs downwards"
exit "$status"

#!/usr/bin/env bash
# Fails when a source file includes a header of a subsystem above its own.
# Uses run one way: settings (the base) <- platform <- engine <- store <-
# diagnosis / organizer / reports <- cli / app / helpers. Subsystems of one
# level do not include each other.
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
while IFS= read -r line; do
  file=${line%%:*}
  from=${file%%/*}
  to=$(sed -E 's/.*#include "([a-z]+)\/.*/\1/' <<<"$line")
  [ "$from" = "$to" ] && continue
  lf=$(level "$from")
  lt=$(level "$to")
  if [ "$lt" -lt 0 ] || [ "$lf" -lt 0 ] || [ "$lt" -ge "$lf" ]; then
    echo "layer violation: $line"
    status=1
  fi
done < <(grep -rnE '^#include "[a-z]+/' --include='*.cpp' --include='*.h' -- */)
[ "$status" -eq 0 ] && echo "layers: every include runs downwards"
exit "$status"

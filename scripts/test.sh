#!/usr/bin/env bash
# Checks the direction of includes, installs what the tests need, builds
# Quorvel with AddressSanitizer and UndefinedBehaviorSanitizer, runs every
# test, then each fuzz harness briefly.
set -euo pipefail
cd "$(dirname "$0")/.."

# Includes run one way between the subsystems; a wrong one fails at once.
bash scripts/check-layers.sh
bash scripts/install-deps.sh --with-tests
cmake --preset asan
cmake --build --preset asan
# The helper channel talks over a D-Bus session bus of its own.
dbus-run-session -- ctest --preset asan "$@"
# Each fuzz harness for a short while; scripts/fuzz.sh SECONDS runs them longer.
bash scripts/fuzz.sh 25

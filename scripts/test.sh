#!/usr/bin/env bash
# Installs what the tests need, builds Quorvel with AddressSanitizer and
# UndefinedBehaviorSanitizer, runs every test, then each fuzz harness briefly.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh --with-tests
cmake --preset asan
cmake --build --preset asan
# The helper channel talks over a D-Bus session bus of its own.
dbus-run-session -- ctest --preset asan "$@"
# Each fuzz harness for a short while; scripts/fuzz.sh SECONDS runs them longer.
bash scripts/fuzz.sh 25

#!/usr/bin/env bash
# Installs what the tests need, builds Quorvel with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh --with-tests
cmake --preset asan
cmake --build --preset asan
# The helper channel talks over a D-Bus session bus of its own.
dbus-run-session -- ctest --preset asan "$@"

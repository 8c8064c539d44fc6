#!/usr/bin/env bash
# Installs what Quorvel needs, builds it, and runs its main job: a diagnosis of
# the default font folders, ending with its report.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset default
cmake --build --preset default --target quorvel-cli
exec build/default/bin/quorvel-cli diagnose --report "$@"

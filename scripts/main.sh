#!/usr/bin/env bash
# The main job: installs what the build needs, builds the tree, and runs the diagnostic demo on
# the embedded object manager: every shipped diagnostic service against every element of this
# machine it can test, through the real provider libraries.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target diagctl
./build/default/tools/diagctl demo "$@"

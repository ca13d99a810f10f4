#!/usr/bin/env bash
# The main job: builds the tree and runs the demo on the embedded object manager.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)"
./build/default/tools/hostdemo "$@"

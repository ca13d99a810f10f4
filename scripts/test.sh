#!/usr/bin/env bash
# Builds and runs every test suite in one CMake preset (default, asan or tsan).
set -euo pipefail
preset="${1:-default}"
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j "$(nproc)"

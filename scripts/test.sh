#!/usr/bin/env bash
# Builds one preset and runs its tests, after installing what is missing. Usage: test.sh [PRESET]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-dev}

scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" -j "$(nproc)"

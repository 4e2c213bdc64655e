#!/usr/bin/env bash
# Builds one preset and runs its tests, after installing what is missing. Usage: test.sh [PRESET]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-dev}

case $preset in
  arm64 | armhf | libcxx)
    scripts/setup.sh ports
    scripts/port-root.sh "$preset"
    ;;
  clang-[0-9]* | memcheck | helgrind) scripts/setup.sh ports ;;
  *) scripts/setup.sh ;;
esac
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" -j "$(nproc)"

#!/usr/bin/env bash
# Prints how many bytes the library of the optimised build has without its symbols.
set -euo pipefail
cd "$(dirname "$0")/.."

stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
strip -o "$stripped" build/bench/libtarvel.so
stat -c %s "$stripped"

#!/usr/bin/env bash
# Prints how many bytes the library of the release build has without its symbols.
set -euo pipefail
cd "$(dirname "$0")/.."

stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
strip -o "$stripped" build/release/libtarvel.so
stat -c %s "$stripped"

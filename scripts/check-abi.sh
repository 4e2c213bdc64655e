#!/usr/bin/env bash
# Compares what a compiled client depends on with the release, which is kept in abi/, and says what
# has changed. A release writes its file with --renew.
set -euo pipefail
cd "$(dirname "$0")/.."

version() { sed -n "s/^#define TARVEL_VERSION_$1 \([0-9]*\).*/\1/p" include/tarvel/version.h; }
released=abi/interface-$(version MAJOR).$(version MINOR).abi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
c++ -std=c++17 -g -O0 -shared -fPIC -femit-class-debug-always -Iinclude abi/interface.cc \
  -o "$work/interface.so"
abidw --headers-dir include --drop-private-types --no-corpus-path --no-comp-dir-path --no-show-locs \
  --out-file "$work/interface.abi" "$work/interface.so"

if [ "${1:-}" = --renew ]; then
  cp "$work/interface.abi" "$released"
elif [ ! -f "$released" ]; then
  echo "There is no $released: the release of this version writes it by $0 --renew."
  exit 1
elif abidiff --harmless "$released" "$work/interface.abi"; then
  echo "The binary interface is that of the release."
else
  echo "Programs built with the release may not run with this library. For a change that is meant,"
  echo "raise the version in CMakeLists.txt and include/tarvel/version.h, then run $0 --renew."
  exit 1
fi

#!/usr/bin/env bash
# The examples build and run against an installed copy, through find_package and through pkg-config,
# and so does the program that the README shows.
# Usage: install_test.sh BUILD_DIR SOURCE_DIR COMPILER
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix with a blank"
cmake --install "$1" --prefix "$prefix" >/dev/null

cmake -S "$2/examples" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$3" >/dev/null
cmake --build "$work/build" >/dev/null
"$work/build/tarvel_example_link_address" "$work/data"

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name tarvel.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2016  # The backticks are the markdown's.
sed -n '/^```cpp$/,/^```$/p' "$2/README.md" | sed '/^```/d' >"$work/readme.cc"
for program in "$2/examples/link_address.cc" "$work/readme.cc"; do
  # The flags of a prefix with a blank are quoted for the shell.
  eval "$3" -std=c++17 -Wshadow -Werror "$program" -o "$work/program" "$(pkg-config --cflags --libs tarvel)"
  LD_LIBRARY_PATH="$(dirname "$PKG_CONFIG_PATH")" "$work/program"
done

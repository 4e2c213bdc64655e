#!/usr/bin/env bash
# The examples build and run against an installed copy, through find_package and through pkg-config,
# and so does the program that the README shows. A backend answers them.
# Usage: install_test.sh BUILD_DIR SOURCE_DIR COMPILER BACKEND
set -euo pipefail
work=$(mktemp -d)
trap 'kill "${backend:-}" 2>/dev/null || :; rm -rf "$work"' EXIT
prefix="$work/prefix with a blank"
cmake --install "$1" --prefix "$prefix" >/dev/null

# shellcheck source=tests/library/backend.sh
. "$(dirname "$0")/backend.sh"
start_backend "$4" "$work"

runs() {  # TEXT PROGRAM [ARGUMENT...]: the program ends well and prints the text.
  "${@:2}" >"$work/output" || { cat "$work/output"; echo "failed: $2"; return 1; }
  grep -F -- "$1" "$work/output" >&2 || { cat "$work/output"; echo "not printed: $1"; return 1; }
}

cmake -S "$2/examples" -B "$work/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$3" >/dev/null
cmake --build "$work/build" >/dev/null
example="$work/build/tarvel_example"
runs "link to 192.0.2.11:8080" "${example}_link_address" "$work/data" "$url"
runs "update: fresh answer" "${example}_callbacks" "$work/callbacks" "$url"
runs '"action": 1' "${example}_exception_records" "$work/records" https://127.0.0.1:9/lbs
runs "lines" "${example}_own_log" "$work/own" "$url" 2>/dev/null
runs "link to " "${example}_flat_from_dlopen" "$(find "$prefix" -name libtarvel.so)" "$work/data" "$url"

PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name tarvel.pc)")
export PKG_CONFIG_PATH
LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH")
export LD_LIBRARY_PATH
# shellcheck disable=SC2016  # The backticks are the markdown's.
sed -n '/^```cpp$/,/^```$/p' "$2/README.md" | sed '/^```/d' >"$work/readme.cc"
# The flags of a prefix with a blank are quoted for the shell.
eval "$3" -std=c++17 -Wshadow -Werror "$work/readme.cc" -o "$work/readme" "$(pkg-config --cflags --libs tarvel)"
runs "connect to 192.0.2.11:8080" "$work/readme" "$url"

cmake --build "$1" --target uninstall >/dev/null
left=$(find "$prefix" ! -type d -o -path '*tarvel*')
[ -z "$left" ] || { echo "left behind: $left"; exit 1; }

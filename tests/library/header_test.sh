#!/usr/bin/env bash
# Both public headers compile alone, warnings as errors, with each compiler and all its language
# levels, the one for C++ also without exceptions and RTTI. A client whose records would differ from
# the library's is told what to do. Usage: header_test.sh INCLUDE_DIR COMPILER...
set -euo pipefail
include=$1

compile() {
  echo "${compiler[*]} $*" >&2
  echo "#include <tarvel/${header:-tarvel}.h>" |
    "${compiler[@]}" "$@" -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Winvalid-offsetof -Werror \
      -I"$include" -fsyntax-only -x c++ - 2>&1
}

refuse() {  # FLAG TEXT...
  local errors text
  if errors=$(compile -std=c++17 "$1"); then echo "compiles"; return 1; fi
  for text in "${@:2}"; do grep -F -- "$text" <<<"$errors" || { echo "$errors"; return 1; }; done
}

for name in "${@:2}"; do
  compiler=("$name")
  if "$name" --version | grep -q clang; then compiler+=(-ferror-limit=0); fi
  for level in c++17 c++20 c++2b; do
    compile -std=$level -fshort-enums
    header=client compile -std=$level
    header=client compile -std=$level -fno-exceptions -fno-rtti
  done
  refuse -D_GLIBCXX_USE_CXX11_ABI=0 "Remove -D_GLIBCXX_USE_CXX11_ABI=0"
  refuse -D_GLIBCXX_DEBUG "Remove -D_GLIBCXX_DEBUG"
  refuse -D_LIBCPP_VERSION=14000 "Remove -stdlib=libc++, or build both"  # Stands for libc++.
  refuse -DTARVEL_STDLIB_LIBCXX "remove -DTARVEL_STDLIB_LIBCXX"
  moved=("Data::duration")
  if "$name" -dM -E -x c++ /dev/null | grep -q __LP64__; then  # Pointers of 32 bits need no gap.
    moved+=("Settings::custom_log" "LBSSettings::addr_family" "Record::url" "Extension::target")
  fi
  refuse -fpack-struct "${moved[@]/%/ has another}"
done

#!/usr/bin/env bash
# The public header compiles alone, warnings as errors, with both compilers and both language levels.
# Usage: header_test.sh INCLUDE_DIR
set -euo pipefail
for compiler in g++ clang++; do
  for level in c++17 c++20; do
    echo "$compiler $level"
    echo '#include <tarvel/tarvel.h>' |
      "$compiler" -std=$level -Wall -Wextra -Wpedantic -Werror -I"$1" -fsyntax-only -x c++ -
  done
done

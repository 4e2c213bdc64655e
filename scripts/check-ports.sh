#!/usr/bin/env bash
# Builds ports, runs their tests, and enters what ran into the table of docs/porting.md. Each port is a
# preset; other ports' rows stay. Ends with 1 if a test failed. Usage: check-ports.sh [PORT...]
set -euo pipefail
cd "$(dirname "$0")/.."
page=docs/porting.md
all=(arm64 armhf libcxx clang-16 clang-19 memcheck helgrind)
declare -A ran=(
  [arm64]="suite under QEMU" [armhf]="suite under QEMU" [libcxx]="suite without tools"
  [clang-16]="suite" [clang-19]="suite"
  [memcheck]="suite under Valgrind's memcheck, without its check of leaks"
  [helgrind]="order of locks in the tests of base, by Valgrind's helgrind"
)

compiler_of() {  # PORT: its name and version.
  sed -n 's/^set(CMAKE_CXX_COMPILER_ID "\(.*\)")/\1/p; s/^set(CMAKE_CXX_COMPILER_VERSION "\(.*\)")/\1/p' \
    "build/$1"/CMakeFiles/*/CMakeCXXCompiler.cmake | sed 's/GNU/g++/; s/Clang/clang++/' | xargs
}
library_of() {  # PORT: the C++ library whose macros its compiler shows.
  local command
  read -ra command < <(sed -n 's/^set(CMAKE_CXX_COMPILER "\(.*\)")/\1/p' "build/$1"/CMakeFiles/*/CMakeCXXCompiler.cmake)
  read -ra flags < <(sed -n 's/^CMAKE_CXX_FLAGS:STRING=//p' "build/$1/CMakeCache.txt")
  echo '#include <version>' | "${command[@]}" "${flags[@]}" -std=c++20 -x c++ -dM -E - |
    awk '$2 == "_GLIBCXX_RELEASE" {print "libstdc++ " $3} $2 == "_LIBCPP_VERSION" {print "libc++ " int($3 / 10000)}'
}
left_out_of() {  # PORT: how many tests its toolchain file names.
  [ -e "build/$1/CTestCustom.cmake" ] || { echo 0; return; }
  grep -cE '^  [a-z_]+\.' "build/$1/CTestCustom.cmake"
}
row_of() {  # PORT LOG: from what ctest printed.
  local total failed skipped
  read -r failed total < <(sed -n 's/.*tests passed, \([0-9]*\) tests failed out of \([0-9]*\).*/\1 \2/p' "$2")
  skipped=$(grep -c '\*\*\*Skipped' "$2" || :)
  echo "| $1 | $(compiler_of "$1") | $(library_of "$1") | ${ran[$1]} |" \
    "$((total - failed - skipped)) | $failed | $skipped | $(left_out_of "$1") | $(date -I) |"
}
enter() {  # PORT ROW: in place of the port's row, in the order of `all`.
  local port old
  old=$(sed -n '/<!-- ports -->/,/<!-- end of ports -->/p' "$page")
  for port in "${all[@]}"; do
    if [ "$port" = "$1" ]; then echo "$2"; else grep "^| $port |" <<<"$old" || :; fi
  done >build/ports.rows
  sed -i '/<!-- ports -->/,/<!-- end of ports -->/ {
    /^| [a-z]/d
    /^|---/r build/ports.rows
  }' "$page"
}

mkdir -p build
status=0
[ $# -gt 0 ] || set -- "${all[@]}"
for port in "$@"; do
  [[ " ${all[*]} " == *" $port "* ]] || { echo "check-ports.sh: no port is called '$port'" >&2; exit 2; }
done
for port in "$@"; do
  scripts/test.sh "$port" 2>&1 | tee "build/$port.log" || status=1
  grep -q 'tests passed, ' "build/$port.log" || { echo "$port: no test ran" >&2; continue; }
  row=$(row_of "$port" "build/$port.log")
  echo "$row"
  enter "$port" "$row"
done
exit $status

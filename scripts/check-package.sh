#!/usr/bin/env bash
# Installs the packages that package.sh made, as root, builds the README's program with them in an
# empty folder, runs it against the installed backend, and removes the packages again.
set -euo pipefail
cd "$(dirname "$0")/.."
readme=$PWD/README.md packages=$PWD/build/package/packages
names=(libtarvel0.1 libtarvel-dev libtarvel0.1-verify libtarvel-verify-dev tarvel-tools)
installed() {
  dpkg-query -W -f='${db:Status-Status} ${Package}\n' "$@" 2>/dev/null | sed -n 's/^installed //p' || :
}
stop() { echo "$1" >&2; exit 1; }
[ "$(id -u)" -eq 0 ] || stop "Only root can install packages."
ls "$packages"/*.deb >/dev/null || stop "scripts/package.sh makes the packages."
[ -z "$(installed "${names[@]}")" ] || stop "Packages of tarvel are installed, and this check would remove them."

work=$(mktemp -d)
clean_up() {
  kill "${backend:-}" 2>/dev/null || :
  cd / && rm -rf "$work"
  apt-get purge -y -qq -o DPkg::Lock::Timeout=60 "${names[@]}" </dev/null >/dev/null ||
    echo "Not all packages were removed: ${names[*]}"
}
trap clean_up EXIT
cd "$work"
apt_install() {
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" \
    </dev/null >apt.log 2>&1 || { cat apt.log; return 1; }
}

apt_install "$packages"/{libtarvel0.1_,libtarvel-dev_,tarvel-tools_}*.deb
# shellcheck disable=SC2016  # The backticks are the markdown's.
sed -n '/^```cpp$/,/^```$/{/^```/d; p}' "$readme" | sed "s|/tmp/my-client|$work/data|" >my_client.cc
cat >CMakeLists.txt <<'END_OF_LISTS'
cmake_minimum_required(VERSION 3.25)
project(my_client LANGUAGES CXX)
find_package(tarvel 0.1 REQUIRED)
add_executable(my_client my_client.cc)
target_link_libraries(my_client PRIVATE tarvel::tarvel)
message(STATUS "verifies: ${tarvel_VERIFIES_TLS}")
END_OF_LISTS
sed -n '/^cat >answers.json/,/^END/p' "$readme" | bash
tarvel-backend answers.json --tls-listen 127.0.0.1:0 >backend.log &
backend=$!
until grep -q listening backend.log; do kill -0 $backend; sleep 0.05; done
url=$(sed -n 's|^listening on https://127.0.0.1:\([0-9]*\).*|https://localhost:\1/lbs/conf.jsp|p' backend.log)

expect() {  # TEXT PROGRAM [ARGUMENT...]
  "${@:2}" >output 2>&1 || { cat output; return 1; }
  grep -F -- "$1" output || { echo "\"$1\" isn't in the output of $2:"; cat output; return 1; }
}
for compiler in g++ clang++; do
  rm -rf by-cmake
  # shellcheck disable=SC2046  # Flags are words.
  $compiler -std=c++17 my_client.cc -o my_client $(pkg-config --cflags --libs tarvel)
  expect "connect to 192.0.2.11:8080" ./my_client "$url"
  expect "verifies: OFF" cmake -S . -B by-cmake -DCMAKE_CXX_COMPILER=$compiler
  cmake --build by-cmake >/dev/null
  expect "connect to 192.0.2.11:8080" by-cmake/my_client "$url"
done
complete() {  # WORD...: what bash offers for the last word of a command line.
  # shellcheck disable=SC2034,SC2016,SC1091  # The completion reads and writes these.
  bash -c '. "/usr/share/bash-completion/completions/$1"; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    _tarvel_complete "$1" "${*: -1}" "${*: -2:1}"; printf "%s\n" "${COMPREPLY[@]}"' _ "$@"
}
expect links complete tarvel li
expect --next-after complete tarvel run --ne
expect --tls-listen complete tarvel-backend --t

# The library that verifies every server takes the place of the other, below the same program.
rm -r data
apt_install "$packages"/*-verify*.deb
[ -z "$(installed libtarvel0.1 libtarvel-dev)" ] || stop "The first library is still installed."
expect "no answer" ./my_client "$url"
expect ON pkg-config --variable=tarvel_VERIFIES_TLS tarvel

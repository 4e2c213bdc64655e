#!/usr/bin/env bash
# The library has the values of the file that CMake is told, and refuses those that can't work.
# Usage: deployment_test.sh SOURCE_DIR COMPILER
set -euo pipefail
source=$1 compiler=$2 placeholders=$1/tarvel/environment/configuration/deployment_defaults.h
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

compile() {  # SED_SCRIPT, applied to the placeholders
  echo "$1" >&2
  sed -E "$1" "$placeholders" >"$work/tarvel_deployment_defaults.h"
  echo '#include "tarvel/environment/configuration/deployment.h"' |
    "$compiler" -std=c++20 -I"$source" -I"$work" -fsyntax-only -x c++ - 2>&1
}
refuse() {  # SED_SCRIPT TEXT...
  local errors text
  if errors=$(compile "$1"); then echo "compiles"; return 1; fi
  for text in "${@:2}"; do
    grep "error: .*$text" <<<"$errors" >/dev/null || { echo "not \"$text\": $errors"; return 1; }
  done
}
compile 's|"link\.[^"]*"|"[2001:db8::1]:1"|; s|"192.0.2.53",|& "192.0.2.54",|; /IPv6 =/,/;/s|"[^"]*",?||g'
refuse 's|"https://lbs|"lbs|; s|:8080"|"|; s|"httpdns|"//httpdns|; s|192.0.2.53|192.0.2.256|; s|\[2001:db8::53\]|2001:db8::53|
  s|"https://stat|"ftp://stat|; s|"/statics|"statics|; s|"http://192|"192|; s|//storage|&:0|' \
  kDefault{LBSUrl,Link,HttpDNS{Host,IPv4,IPv6},StatisticsHost,MessageStatisticsPath,ObjectStorage{Servers,Url}}": must"
refuse 's|:8080"|:80800"|; /IPv4 =/,/;/s|"[^"]*",?||g; s|:db8::53|:db8:53|' \
  kDefault{Link,HttpDNSIPv{4,6}}": must"

mine="$work/of the integrator.h"
configure() {
  cmake -S "$source" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_BUILD_TYPE=Debug \
    -DTARVEL_BUILD_TESTS=OFF -DTARVEL_BUILD_TOOLS=OFF -DTARVEL_DEPLOYMENT_DEFAULTS="$mine" 2>&1
}
if errors=$(configure); then echo "configures without the file"; exit 1; fi
grep -F "TARVEL_DEPLOYMENT_DEFAULTS names no file:" <<<"$errors"
for name in first second; do
  sed "s/statistics.tarvel.invalid/$name.statistics.test/" "$placeholders" >"$mine"
  [[ $name == second ]] || configure >/dev/null
  object=business/CMakeFiles/tarvel_lbs.dir/tarvel_lbs/lbs_answer.cc.o
  cmake --build "$work/build" --target $object >/dev/null
  grep -F "https://$name.statistics.test" "$work/build/$object"
  if grep -F "of the integrator" "$work/build/$object"; then exit 1; fi
done

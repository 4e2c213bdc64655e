#!/usr/bin/env bash
# Measures this machine and prints the tables of docs/performance.md as Markdown. Installs what is
# missing and builds. Ends with 1 if a benchmark fails. It all takes half an hour.
# Usage: bench.sh [-n REPETITIONS] [NAME...], where NAME is log for bench/log_bench.cc.
set -euo pipefail
cd "$(dirname "$0")/.."

repetitions=7
while getopts n: option; do
  [ "$option" = n ] || exit 1
  repetitions=$OPTARG
done
shift $((OPTIND - 1))
[[ $repetitions =~ ^[1-9][0-9]*$ ]] || { echo "no number of repetitions: $repetitions" >&2; exit 1; }
if [ $# -eq 0 ]; then
  set -- bench/*_bench.cc
  set -- "${@#bench/}"
  set -- "${@%_bench.cc}"
fi

# quietly COMMAND...: shows its output only if it fails.
quietly() {
  local output
  output=$("$@" 2>&1) || { echo "$output" >&2; exit 1; }
}
quietly scripts/setup.sh
quietly cmake --preset bench
quietly cmake --build --preset bench --target tarvel "${@/#/tarvel_bench_}"

compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' build/bench/CMakeCache.txt)
cat <<END
Machine: $(sed -n 's/^model name.*: //p' /proc/cpuinfo | uniq), $(nproc) cores, Linux $(uname -r),
$("$compiler" --version | head -n 1), $(date -I), commit $(git describe --always --dirty).
Medians of $repetitions repetitions; ± is half the range of the repetitions.

stripped library: $(scripts/stripped-size.sh) bytes

END
python3 -B bench/report.py "$repetitions" "$@"

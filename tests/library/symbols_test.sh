#!/usr/bin/env bash
# The stripped library shows the five functions of the public header and no other symbol.
# Usage: symbols_test.sh LIBRARY STRIP NM
set -euo pipefail
stripped=$(mktemp)
trap 'rm -f "$stripped"' EXIT
"$2" -o "$stripped" "$1"

expected="T zo_tarvel::ExitTarvelEnvironment(int)
T zo_tarvel::GetTarvelObject(int)
T zo_tarvel::SetExceptionDataReporter(void (* const&)(zo_tarvel::TarvelExceptionData const&))
T zo_tarvel::StartTarvelEnvironment(zo_tarvel::_ZOTarvelEnvironmentSettings const&)
T zo_tarvel::TarvelExceptionDataToJsonString(zo_tarvel::TarvelExceptionData const&)"
# libstdc++ marks what returns its new strings.
shown=$("$3" -DC --defined-only "$stripped" | cut -d' ' -f2- | sed 's/\[abi:cxx11\]//' | LC_ALL=C sort)
diff <(echo "$expected") <(echo "$shown")

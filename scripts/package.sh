#!/usr/bin/env bash
# Makes the Debian packages, in build/package/packages: the library, its headers, the tools, and a
# second library with headers that verifies every https server.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
rm -rf build/package/packages
for verifies in ON OFF; do  # The last one stays configured.
  cmake --preset package -DTARVEL_VERIFY_TLS=$verifies >/dev/null
  cmake --build --preset package
  (cd build/package && cpack -B packages >/dev/null)
done
rm -rf build/package/packages/_CPack_Packages
lintian --fail-on error build/package/packages/*.deb
ls build/package/packages

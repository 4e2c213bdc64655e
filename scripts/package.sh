#!/usr/bin/env bash
# Makes the Debian packages, in build/package/packages: the library, its headers, the tools, and a
# second library with headers that verifies every https server. Arguments go to CMake, for instance
# -DTARVEL_DEPLOYMENT_DEFAULTS=FILE.
set -euo pipefail
cd "$(dirname "$0")/.."
umask 022

scripts/setup.sh
# What Debian builds its own packages with, so that the same sources make the same packages.
export DEB_BUILD_MAINT_OPTIONS=hardening=+all
CXXFLAGS="$(dpkg-buildflags --get CPPFLAGS) $(dpkg-buildflags --get CXXFLAGS) -g0"
LDFLAGS=$(dpkg-buildflags --get LDFLAGS)
release=$(sed -n 's/^## [0-9.]* - //p;T;q' CHANGELOG.md)
SOURCE_DATE_EPOCH=$(date --utc --date "$release" +%s)
export CXXFLAGS LDFLAGS SOURCE_DATE_EPOCH

rm -rf build/package/packages
cmake --fresh --preset package -DTARVEL_VERIFY_TLS=ON "$@" >/dev/null
for verifies in ON OFF; do  # The last one stays configured.
  cmake build/package -DTARVEL_VERIFY_TLS=$verifies >/dev/null
  cmake --build --preset package
  (cd build/package && cpack -B packages >/dev/null)
done
rm -rf build/package/packages/_CPack_Packages
TMPDIR=$(mktemp -d)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
lintian --fail-on error build/package/packages/*.deb
ls build/package/packages

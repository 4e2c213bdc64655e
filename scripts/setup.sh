#!/usr/bin/env bash
# Installs the packages of packages.txt that are missing, and with `ports` those of packages-ports.txt.
# As root, or through sudo. Usage: setup.sh [ports]
set -euo pipefail
cd "$(dirname "$0")"
lists=(packages.txt)
case "${1:-}" in
  '') ;;
  ports) lists+=(packages-ports.txt) ;;
  *)
    echo "setup.sh: no packages are known for '$1'" >&2
    exit 2
    ;;
esac

is_installed() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

missing=()
while read -r package; do
  is_installed "$package" || missing+=("$package")
done < <(sed 's/#.*//; /^[[:space:]]*$/d' "${lists[@]}")

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  as_root=(sudo)
fi
echo "installing: ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null

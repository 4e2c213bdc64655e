#!/usr/bin/env bash
# Unpacks the libraries that a port is built with and runs on into build/roots/PORT, unless they are
# there. The packages of this machine stay as they are. Usage: port-root.sh arm64|armhf|libcxx
set -euo pipefail
cd "$(dirname "$0")/.."
port=${1:-}
root=build/roots/$port

# Prints the -dev packages of the sections of packages.txt that are about libraries.
linked_packages() {
  awk '/^#/ {linked = /^# Libraries/} linked && /^[^#]/ {print $1}' scripts/packages.txt
}

case $port in
  arm64 | armhf)
    architecture=$port
    mapfile -t packages < <(linked_packages)
    packages+=(libc6-dev libstdc++6)
    ;;
  libcxx)  # libc++-19-dev, once installed, would remove the libunwind-dev of the benchmarks.
    architecture=$(dpkg --print-architecture)
    packages=(libc++-19-dev libc++abi-19-dev)
    ;;
  *)
    echo "port-root.sh: no root is known for '$port'" >&2
    exit 2
    ;;
esac

case $PWD in
  *' '*)
    echo "port-root.sh: compilers can't use a root below a path with a blank: $PWD" >&2
    exit 2
    ;;
esac
wanted="${packages[*]}"
if [ -d "$root" ] && [ "$(cat "$root.packages" 2>/dev/null)" = "$wanted" ]; then
  exit 0
fi

# The release's own suite, from where this machine gets it.
# shellcheck source=/dev/null
codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
mirror=$(apt-get indextargets --format "\$(REPO_URI)" "Created-By: Packages" "Codename: $codename" |
  sed -n 1p)
[ -n "$mirror" ] || { echo "port-root.sh: apt has no source of $codename" >&2; exit 1; }
echo "making $root: $wanted"
rm -rf "$root" "$root.packages"
mkdir -p build/roots
mmdebstrap --quiet --variant=extract --architectures="$architecture" --components=main \
  --include="${packages[*]}" "$codename" "$root" "$mirror"

# The emulator prefers the root's files. Programs must read this machine's configuration.
rm -rf "${root:?}/etc"
# A link to an absolute path would lead out of the root.
find "$root" -type l -lname '/*' -printf '%p\0%l\0' |
  while IFS= read -r -d '' link && IFS= read -r -d '' target; do
    ln -sfnr "$root$target" "$link"
  done
echo "$wanted" >"$root.packages"

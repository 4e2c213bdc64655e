#!/usr/bin/env bash
# A client on a machine that has little. It gets link addresses and an answer, or says what it lacks,
# and ends. The script ends with 77 if the machine didn't permit everything.
# Usage: small_machine_test.sh EXAMPLE_LINK_ADDRESS LIBRARY BACKEND
set -euo pipefail
work=$(mktemp -d)
chmod 755 "$work"
cp "$1" "$work/client"  # Another user may not be able to enter the folders above the build.
cp "$2" "$work/$(basename "$2" | cut -d. -f1-4)"
memory=/sys/fs/cgroup/memory/tarvel-$$
clean_up() {
  kill "${backend:-}" 2>/dev/null || :
  umount "$work/full" 2>/dev/null || :
  rmdir "$memory" 2>/dev/null || :
  rm -rf "$work"
}
trap clean_up EXIT

# shellcheck source=tests/library/backend.sh
. "$(dirname "$0")/backend.sh"
start_backend "$3" "$work"

client() {  # DIRECTORY WRAPPER...: runs the client, by a command that takes something from it.
  LD_LIBRARY_PATH=$work timeout 60 "${@:2}" "$work/client" "$1" "$url" 2>&1 |
    cat >"$work/output"  # A limit of the client is none of its output.
}
expect() {  # WHAT TEXT, in the output.
  echo "$1: $2"
  grep -qF -- "$2" "$work/output" || { cat "$work/output"; exit 1; }
}
in_cgroup() { (echo "$BASHPID" >"$memory/cgroup.procs" && exec "$@"); }

client "$work/files" prlimit --nofile=64
expect "64 descriptors" "a server has answered"
for limit in 0 100; do  # KiB: fewer than the log's companion has, and than a log grows to.
  client "$work/limit$limit" prlimit --fsize=$((limit << 10))
  expect "files of $limit KiB" "link to 192.0.2.11:8080"
done
export MALLOC_ARENA_MAX=1  # Each arena would take 64 MiB of addresses.
client "$work/addresses" prlimit --as=$((96 << 20))
expect "96 MiB of addresses" "a server has answered"
client "$work/few-addresses" prlimit --as=$((64 << 20))  # Too few for the thread of a lookup.
expect "64 MiB of addresses" "link to link.example:8080"
unset MALLOC_ARENA_MAX
if mkdir "$memory" 2>/dev/null && echo $((64 << 20)) >"$memory/memory.limit_in_bytes"; then
  export -f in_cgroup
  export memory
  # shellcheck disable=SC2016  # For the inner shell.
  client "$work/memory" bash -c 'in_cgroup "$@"' _
  expect "64 MiB of memory" "link to 192.0.2.11:8080"
else
  echo "64 MiB of memory: left out, since there is no control group to make"
  left_out=yes
fi
if [ "$(id -u)" -ne 0 ]; then
  echo "The rest is left out: only root can become another user, or mount a disk."
  exit 77
fi

as_other=(setpriv --reuid 61234 --regid 61234 --clear-groups)  # Root has no limits of this kind.
mkdir -m 777 "$work/threads"
client "$work/threads" "${as_other[@]}" prlimit --nproc=32
expect "32 threads" "a server has answered"
mkdir -m 777 "$work/few"
client "$work/few" "${as_other[@]}" prlimit --nproc=3
expect "3 threads" "no server has answered"
expect "3 threads" "link to link.example:8080"
mkdir -m 555 "$work/read-only"
if client "$work/read-only" "${as_other[@]}"; then exit 1; fi
expect "read-only directory" "directory"
mkdir "$work/full"
if mount -t tmpfs -o size=64k tmpfs "$work/full" 2>/dev/null; then
  mkdir "$work/full/client"
  head -c 65536 /dev/zero >"$work/full/rest" 2>/dev/null || :
  client "$work/full/client" env
  expect "full disk" "link to 192.0.2.11:8080"
else
  echo "full disk: left out, since none can be mounted"
  left_out=yes
fi
[ -z "${left_out:-}" ] || exit 77

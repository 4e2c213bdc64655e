#!/usr/bin/env bash
# The whole story of a client, told and checked: a dead LBS host, a broken name server, no server at
# all, and a killed process. Installs what is missing, builds, and runs on loopback only.
# Ends with 1 if something was not as told. Leaves tarvel-demo.html, a page of all requests: in build/,
# or in the current folder when the programs of a finished build are given.
# Usage: demo.sh [TARVEL BACKEND]
set -euo pipefail

if [ $# -eq 2 ]; then
  tarvel=$(realpath "$1") backend=$(realpath "$2") pages=$PWD
  [ -w . ] || pages=${TMPDIR:-/tmp}
else
  cd "$(dirname "$0")/.."
  scripts/setup.sh
  cmake --preset dev >/dev/null
  cmake --build --preset dev --target tarvel_cli tarvel_backend
  tarvel=$PWD/build/dev/tools/cli/tarvel backend=$PWD/build/dev/tools/backend/tarvel-backend
  pages=$PWD/build
fi

work=$(mktemp -d)
pids=()
finish() {
  for pid in "${pids[@]}"; do kill -9 "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap finish EXIT
cd "$work"
SECONDS=0

step() { printf '\n--- %s\n' "$1"; }
say() { printf '    %s\n' "$1"; }
fail() {
  printf '\nNOT AS TOLD: %s\n' "$1" >&2
  exit 1
}
# expect PATTERN FILE TEXT: the file has a line like this.
expect() {
  grep -qE -- "$1" "$2" || fail "$3"
  say "checked: $3"
}
# expect_links FILE ADDRESS...: the addresses that were handed out, all of them, in order.
expect_links() {
  local file=$1
  shift
  local found
  found=$(awk '$3 == "link" { print $4 }' "$file" | xargs)
  [ "$found" = "$*" ] || fail "the link addresses are $* (got: $found)"
  say "checked: the link addresses are $*"
}
# run OUTPUT STATUS ARGUMENT...: a client, whose lines are shown.
run() {
  local output=$1 wanted=$2 status=0
  shift 2
  "$tarvel" run --token demo --timeout 3000 --next-after 500 "$@" >"$output" || status=$?
  sed 's/^/    /' "$output"
  [ "$status" -eq "$wanted" ] || fail "the client ends with $wanted (got: $status)"
}
# in_background OUTPUT COMMAND...: sets `pid`. The shell keeps quiet about how it ends.
in_background() {
  local output=$1
  shift
  "$@" >"$output" &
  pid=$!
  pids+=("$pid")
  disown "$pid"
}
# start_backend NAME ARGUMENT...: sets `pid`; waits until it listens.
start_backend() {
  local name=$1
  shift
  echo '{}' >"$name.json"
  in_background "$name.log" "$backend" "$name.json" --name lbs.demo.test --name httpdns.demo.test \
    --write-certificate "$name.pem" "$@"
  for _ in $(seq 100); do
    [ "$(grep -c '^listening' "$name.log")" -eq 2 ] && return
    sleep 0.05
  done
  fail "the backend $name listens"
}
port_of() { sed -n "s|^listening on $2://.*:||p" "$1.log"; }

step "Two backends: LBS on 127.0.0.2, LBS and HTTPDNS on 127.0.0.3"
start_backend second --listen 127.0.0.3:0 --tls-listen 127.0.0.3:0
second=$pid
http=$(port_of second http)
https=$(port_of second https)
start_backend first --listen "127.0.0.2:$http" --tls-listen "127.0.0.2:$https"
first=$pid
cat first.pem second.pem >trusted.pem
first_url=http://127.0.0.2:$http/lbs/conf.jsp
second_url=http://127.0.0.3:$http/lbs/conf.jsp
server='{"host":"127.0.0.3","port":'$https',"https":true}'
# answer NAME FAULTS: what this backend answers from now on.
answer() {
  cat >new.json <<END
{"lbs": {"common": {"name": "the demo", "ttl": 3600, "lbs": "$first_url",
                    "link": ["192.0.2.11:8080", "192.0.2.12:8080", "[2001:db8::13]:8080"],
                    "link.default": ["192.0.2.99:8080"]}},
 "httpdns": {"servers": {"host": "httpdns.demo.test", "ttl": 3600, "ipv4": [$server], "ipv6": []},
             "hosts": {"lbs.demo.test": {"ip": ["127.0.0.2", "127.0.0.3"], "ttl": 600}}},
 "faults": {$2}}
END
  mv new.json "$1.json"
}
answer first ''
answer second ''
printf '{"host":"httpdns.demo.test","ipv4":"[%s]"}' "${server//\"/\\\"}" >servers.data
kill -USR1 "$first"
say "127.0.0.2 is dead from now on: its packets are dropped, so that nobody even says so."

step "1. A first start: a link address at once, a fresh answer past the dead host"
say "The address of the settings is there before any server was asked. The dead host gets a head"
say "start of 0.5 s, then the backup is asked beside it. After the three addresses of the answer"
say "the list is used up: then comes the default."
run first_start 0 --data data --lbs "$first_url" --backup "$second_url" --no-httpdns \
  --link 192.0.2.1:8080 --take 4
log=$(echo data/tarvel_comp/*/tarvel_comp.log)  # The other businesses have no log yet.
expect '^ +0\.[0-9]+ s +link +192\.0\.2\.1:8080' first_start "an address within the first second"
expect "tried +$second_url +200" first_start "the backup has answered"
expect 'answer +fresh, "the demo"' first_start "the answer is fresh"
expect_links first_start 192.0.2.1:8080 192.0.2.11:8080 192.0.2.12:8080 '[2001:db8::13]:8080' \
  192.0.2.99:8080
expect 'exit +all threads have ended' first_start "a clean exit"

step "2. Every LBS URL fails: HTTPDNS, and a second try on IP addresses over TLS"
say "No name server knows lbs.demo.test. HTTPDNS says 127.0.0.2, which is dead, and 127.0.0.3. The"
say "certificate is checked against the name, not the address."
run second_try 0 --data data --business second_try --lbs "https://lbs.demo.test:$https/lbs/conf.jsp" \
  --httpdns-cache servers.data --trust trusted.pem --take 1
expect "tried +https://lbs.demo.test:$https/lbs/conf.jsp +0" second_try "the URL by name has failed"
expect 'domain=lbs.demo.test' second.log "HTTPDNS was asked for the name"
expect "tried +https://127.0.0.3:$https/lbs/conf.jsp +200" second_try "the second try has brought it"
expect 'answer +fresh' second_try "the answer is fresh"

step "3. A server that fails: an exception record, with its correction"
say "127.0.0.2 is back, but its LBS answers 503."
kill -USR2 "$first"
answer first '"/lbs/conf.jsp": {"status": 503}'
run failure 0 --data data --business failure --lbs "$first_url" --backup "$second_url" \
  --no-httpdns --take 1
expect "exception +$first_url +503 .* corrected by $second_url" failure \
  "the record tells which URL has failed and which one saved the request"

step "4. No server at all: the second start lives on what the first one has kept"
kill -9 "$first" "$second"
run from_cache 3 --data data --lbs "$first_url" --backup "$second_url" --no-httpdns \
  --link 192.0.2.1:8080 --take 2 --wait 1
expect '^ +0\.[0-9]+ s +link +192\.0\.2\.11:8080' from_cache "an address of the old answer"
expect_links from_cache 192.0.2.11:8080 192.0.2.12:8080 '[2001:db8::13]:8080'

step "5. kill -9: nothing that was logged is lost"
in_background killed "$tarvel" run --token demo --data data --lbs "$first_url" --no-httpdns --follow
victim=$pid
until grep -q link killed; do sleep 0.05; done
lines_before=$(grep -c " $victim-" "$log" || true)
kill -9 "$victim"
say "The process is dead. Its last lines are in a mapped file; the next start moves them to the log."
run after_kill 3 --data data --lbs "$first_url" --no-httpdns --wait 0 --take 1 >/dev/null
lines_after=$(grep -c " $victim-" "$log" || true)
say "lines of the killed process in the log: $lines_before before, $lines_after after"
[ "$lines_after" -gt "$lines_before" ] || fail "the lines of the killed process are in the log"
grep " $victim-" "$log" | tail -2 | cut -c 1-110 | sed 's/^/    /'

page=$pages/tarvel-demo.html
"$tarvel" inspect data --html "$page" >page.log
expect '^wrote' page.log "a page shows all requests of these steps: $page"

printf '\nAll as told, after %s s.\n' "$SECONDS"

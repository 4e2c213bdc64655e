#!/usr/bin/env bash
# Holds the includes to the layers: a file includes its own room and those that stand before it here.
# Nobody includes the engine, since another platform has another one.
set -euo pipefail
cd "$(dirname "$0")/.."
rooms='base/lock base/text base/process base/object base/json base/thread base/log base/file
       network/url network/http network/curl network/dns
       tarvel/environment/configuration tarvel/http_agent/logic/request
       tarvel/http_agent/http_tools tarvel/http_agent/http_dns tarvel/http_agent/logic
       tarvel/environment business'
git ls-files -- base network tarvel business | xargs grep -H '^#include ".*/' |
  awk -F'[:"]' -v rooms="$rooms" '
    function floor(path, found) {  # The place of its room in the list; 0 when it is in none.
      for (found = 0; found == 0 && sub("/[^/]*$", "", path);) found = place[path]
      return found
    }
    BEGIN { for (i = split(rooms, room, "[ \n]+"); i > 0; --i) place[room[i]] = i }
    floor($3) == 0 || floor($3) > floor($1) || ($3 ~ "^network/curl/" && $1 !~ "^network/curl/") { print $1 " must not include " $3; wrong = 1 }
    END { exit wrong }'

# Sourced by tests that need a server.
# shellcheck shell=bash disable=SC2034  # They use what is set here.

start_backend() {  # PROGRAM DIRECTORY: sets `backend`, the process, and `url`, of its LBS.
  cat >"$2/answers.json" <<'END'
{"lbs": {"common": {"lbs": "https://localhost/lbs/conf.jsp", "link": ["192.0.2.11:8080"],
                    "link.default": ["192.0.2.99:8080"], "ttl": 3600}}}
END
  : >"$2/backend.log"  # It is read before the backend writes.
  "$1" "$2/answers.json" --tls-listen 127.0.0.1:0 >>"$2/backend.log" &
  backend=$!
  until grep -q listening "$2/backend.log"; do kill -0 "$backend"; sleep 0.05; done
  url=$(sed -n 's|^listening on https://127.0.0.1:\([0-9]*\).*|https://localhost:\1/lbs/conf.jsp|p' "$2/backend.log")
}

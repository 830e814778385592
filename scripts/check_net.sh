#!/usr/bin/env bash
# Mail and web fetch against servers that others wrote: Python's, on free loopback ports.
#
#   check_net.sh [BUILD]     (default: build/mingw; `fetch` and `send_mail` must be built)
#
# A mail of 200 KB arrives whole, and a page of 100 MB is fetched in bounded memory.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$PWD/${1:-build/mingw}
. scripts/wine_session.sh
folder=$(mktemp -d)
server=

finish() {
  [ -z "$server" ] || kill "$server" 2>/dev/null || true
  rm -rf "$folder"
  stop_wine_session
}
trap finish EXIT

# start SCRIPT: runs a Python server that writes its port to the file "port".
start() {
  rm -f "$folder/port"
  python3 -W ignore -c "$1" "$folder" &
  server=$!
  for _ in $(seq 100); do
    [ -s "$folder/port" ] && break
    sleep 0.1
  done
  port=$(cat "$folder/port")
}

stop() {
  kill "$server"
  wait "$server" 2>/dev/null || true
  server=
}

# The fetch asks no server to close, so this one does so behind each answer.
web_server='
import http.server, os, sys
class Handler(http.server.SimpleHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    def __init__(self, *args): super().__init__(*args, directory=sys.argv[1])
    def handle(self): self.handle_one_request()
    def log_message(self, *args): pass
server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
with open(sys.argv[1] + "/part", "w") as file: file.write(str(server.server_address[1]))
os.rename(sys.argv[1] + "/part", sys.argv[1] + "/port")
server.serve_forever()
'

mail_server='
import asyncore, os, smtpd, sys
class Server(smtpd.SMTPServer):
    def process_message(self, peer, sender, receivers, data, **options):
        with open(sys.argv[1] + "/mail", "wb") as file:
            file.write(f"{sender}|{receivers}\n".encode() + data)
server = Server(("127.0.0.1", 0), None)
with open(sys.argv[1] + "/part", "w") as file: file.write(str(server.socket.getsockname()[1]))
os.rename(sys.argv[1] + "/part", sys.argv[1] + "/port")
asyncore.loop()
'

# A name to look up, where the machine knows it.
host=localhost
getent hosts $host >/dev/null || host=127.0.0.1

# The most memory that the process has held, in KiB.
watch_memory() {
  local most=0 now
  while now=$(sed -n 's/^VmHWM:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$1/status" 2>/dev/null); do
    [ -n "$now" ] || break
    most=$now
    sleep 0.05
  done
  echo "$most"
}

check_fetch() {
  head -c 100000000 /dev/urandom >"$folder/page"
  start "$web_server"
  (cd "$folder" && exec $wine "$build/bin/fetch.exe" $host "$port" /page copy) &
  local fetch=$!
  local memory
  memory=$(watch_memory $fetch)
  wait $fetch
  cmp "$folder/page" "$folder/copy"
  [ "$memory" -gt 0 ] && [ "$memory" -lt 65536 ] || { echo "fetch held $memory KiB"; return 1; }
  if $wine "$build/bin/fetch.exe" 127.0.0.1 "$port" /no-such-page; then return 1; fi
  stop
  echo "fetch: 100 MB are equal, at most $memory KiB held"
}

check_mail() {
  { echo ".begins with a dot"; seq 30000; echo "..and ends with two"; } >"$folder/text"
  start "$mail_server"
  (cd "$folder" && $wine "$build/bin/send_mail.exe" $host "$port" a@here.example \
    b@there.example "The numbers" text)
  stop
  { echo "a@here.example|['b@there.example']"; printf 'Subject: The numbers\n\n'
    cat "$folder/text"; } | cmp - "$folder/mail"
  echo "mail: $(wc -c <"$folder/text") bytes arrived whole"
}

check_mail
check_fetch
echo "net: mail and web fetch agree with servers that others wrote"

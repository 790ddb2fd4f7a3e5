#!/usr/bin/env bash
# The Remote GUI from end to end: a web server stands for the appliance's GUI on 127.0.0.1:8008, two
# processes tunnel to it, and curl fetches the page through them.
# usage: remote_gui_demo.sh directory-of-the-programs [--serial] [--port PORT] [--keep]
#   --serial  join the two ends by a pseudo-terminal pair instead of a Unix socket
#   --port    where the local end listens (8080)
#   --keep    leave everything running for a browser until Enter is pressed
set -euo pipefail
programs=$1
shift
serial=false keep=false port=8080
while [ $# -gt 0 ]; do
  case $1 in
    --serial) serial=true ;;
    --keep) keep=true ;;
    --port) port=$2; shift ;;
    *) sed -n '2,7s/^# //p' "$0" >&2; exit 2 ;;
  esac
  shift
done
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
tunnel=$programs/remote_gui_tunnel
for needed in lighttpd curl $($serial && echo socat); do
  PATH=$PATH:/usr/sbin command -v "$needed" >/dev/null || { echo "the demo needs $needed" >&2; exit 77; }
done

scratch=$(mktemp -d)
children=()
cleanup() {
  [ ${#children[@]} -eq 0 ] || kill "${children[@]}" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$scratch"
}
trap cleanup EXIT

# wait_for SECONDS COMMAND...
wait_for() {
  local tries=$(($1 * 20))
  shift
  until "$@" >/dev/null 2>&1; do
    [ $((tries -= 1)) -gt 0 ] || { echo "gave up waiting for: $*" >&2; exit 1; }
    sleep 0.05
  done
}

! curl -s -o "$scratch/other" http://127.0.0.1:8008/ || { echo "port 8008 is in use" >&2; exit 1; }
cat >"$scratch/lighttpd.conf" <<CONF
server.document-root = "$here/www"
server.bind = "127.0.0.1"
server.port = 8008
index-file.names = ("index.html")
mimetype.assign = (".html" => "text/html", ".js" => "text/javascript", ".svg" => "image/svg+xml",
  ".json" => "application/json")
CONF
PATH=$PATH:/usr/sbin lighttpd -D -f "$scratch/lighttpd.conf" 2>"$scratch/lighttpd.log" &
children+=($!)
wait_for 10 curl -s http://127.0.0.1:8008/
echo "GUI server:  http://127.0.0.1:8008/"

if $serial; then
  socat "pty,rawer,link=$scratch/line1" "pty,rawer,link=$scratch/line2" &
  children+=($!)
  wait_for 10 test -e "$scratch/line2"
  remote_link=serial:$scratch/line1 local_link=serial:$scratch/line2
else
  remote_link=unix-listen:$scratch/link local_link=unix:$scratch/link
fi
"$tunnel" remote "$remote_link" &
children+=($!)
"$tunnel" local "$local_link" --port "$port" &
children+=($!)
wait_for 10 curl -s "http://127.0.0.1:$port/"
echo "Through the tunnel ($local_link):"
curl -sS -o "$scratch/page" -w '  GET / -> %{http_code}, %{size_download} bytes in %{time_total} s\n' \
  "http://127.0.0.1:$port/"
cmp "$scratch/page" "$here/www/index.html"
for image in "$here"/www/*.svg; do
  curl -sS "http://127.0.0.1:$port/${image##*/}" | cmp - "$image"
done
echo "  the page and its images are the server's, byte for byte"

if $keep; then
  echo "Open http://127.0.0.1:$port/ in a browser; press Enter to end."
  read -r _ || sleep infinity
fi

#!/usr/bin/env bash
# The remote_gui_tunnel example from end to end: a web server behind it, curl, ab and a browser in
# front, over a Unix socket and a serial line; throughput is printed beside a plain relay.
# usage: remote_gui_tunnel_test.sh remote_gui_tunnel directory-of-the-examples [screenshot.png]
set -euo pipefail
PATH=$PATH:/usr/sbin:/sbin
if [ "${PRIVATE_NETWORK:-}" != yes ] && unshare -rn true 2>/dev/null; then
  PRIVATE_NETWORK=yes exec unshare -rn "$0" "$@" # the GUI's port must be free
fi
[ "${PRIVATE_NETWORK:-}" != yes ] || ip link set lo up
tunnel=$1 examples=$2 screenshot=${3:-}
for needed in lighttpd curl; do
  command -v "$needed" >/dev/null || { echo "skipped: $needed is not installed"; exit 77; }
done
! curl -s -o /dev/null http://127.0.0.1:8008/ || { echo "skipped: port 8008 is in use"; exit 77; }

readonly port=8880 gui=http://127.0.0.1:8008 through=http://127.0.0.1:8880
readonly size=$((200 << 20))
scratch=$(mktemp -d)
children=() failures=0
cleanup() {
  [ ${#children[@]} -eq 0 ] || kill "${children[@]}" 2>/dev/null || true
  wait 2>/dev/null || true
  rm -rf "$scratch"
}
trap cleanup EXIT
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
run() { "$@" & children+=($!); }
end() { # end PID...: ends children and waits for them
  kill "$@" 2>/dev/null || true
  wait "$@" 2>/dev/null || true
}
wait_for() { # wait_for SECONDS COMMAND...
  local tries=$(($1 * 20))
  shift
  until "$@" >/dev/null 2>&1; do
    [ $((tries -= 1)) -gt 0 ] || { echo "FAIL: gave up waiting for: $*"; exit 1; }
    sleep 0.05
  done
}

mkdir "$scratch/www"
cp "$examples"/www/* "$scratch/www"
head -c "$size" /dev/urandom >"$scratch/www/large"
cat >"$scratch/lighttpd.conf" <<CONF
server.document-root = "$scratch/www"
server.bind = "127.0.0.1"
server.port = 8008
server.max-fds = 4096
server.listen-backlog = 1024
index-file.names = ("index.html")
mimetype.assign = (".html" => "text/html", ".js" => "text/javascript", ".svg" => "image/svg+xml",
  ".json" => "application/json")
CONF
ulimit -n 4096 || true
run lighttpd -D -f "$scratch/lighttpd.conf"
wait_for 10 curl -s "$gui/"

start_tunnel() { # start_tunnel REMOTE-LINK LOCAL-LINK
  "$tunnel" remote "$1" --quiet & remote=$!
  "$tunnel" local "$2" --quiet --port $port & local=$!
  children+=("$remote" "$local")
  wait_for 10 curl -s "$through/"
}
same() { # same FILE [curl options]: the tunnel gives the server's bytes
  local file=$1
  shift
  curl -sS "$@" "$through/$file" | cmp - "$scratch/www/$file" || fail "$file differs"
}
entries() { find "/proc/$1" -mindepth 1 -maxdepth 1 | wc -l; }
idle() { # no connection is left: the main thread, and at the local end the listener
  [ "$(entries "$local/task")" = 2 ] && [ "$(entries "$remote/task")" = 1 ]
}
speed_of() { curl -sS -o /dev/null -w '%{speed_download}' "$1/large" | awk '{ printf "%.0f", $1 / 1e6 }'; }

# ---- over a Unix socket
start_tunnel "unix-listen:$scratch/link" "unix:$scratch/link"
wait_for 10 idle
at_start="$(entries "$local/fd") $(entries "$remote/fd")"
for file in index.html page.js bay1.svg bays.json; do same "$file"; done
same large
echo "200 MB: $(curl -sS "$through/large" | sha256sum | cut -c-16), $(sha256sum <"$scratch/www/large" | cut -c-16) at the server"

if command -v ab >/dev/null; then
  ab -q -r -s 60 -n 500 -c 500 "$through/page.js" >"$scratch/ab" 2>&1 || fail "ab: $(tail -3 "$scratch/ab")"
  grep -E '^(Complete|Failed) requests|^Requests per second' "$scratch/ab" || true
  grep -q '^Complete requests: *500$' "$scratch/ab" || fail "not all requests were answered"
  grep -q '^Failed requests: *0$' "$scratch/ab" || fail "some requests failed"
else
  echo "not tested: ab (Debian's apache2-utils) is not installed"
fi

wait_for 10 idle
descriptors="$(entries "$local/fd") $(entries "$remote/fd")"
[ "$descriptors" = "$at_start" ] || fail "descriptors at the ends: $at_start at first, now $descriptors"

if command -v chromium >/dev/null; then
  browser=(chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run
    --disable-background-networking --disable-component-update --disable-sync --disable-dev-shm-usage
    --virtual-time-budget=20000 --user-data-dir="$scratch/profile")
  timeout 90 "${browser[@]}" --dump-dom "$through/" >"$scratch/dom" 2>"$scratch/browser.log" ||
    fail "chromium: $(tail -3 "$scratch/browser.log")"
  grep -o '<p id="status">[^<]*' "$scratch/dom" || true
  grep -q '>8 of 8 images, 12 answers, 96 bays<' "$scratch/dom" || fail "the page is not complete"
  if [ -n "$screenshot" ]; then
    timeout 90 "${browser[@]}" --window-size=900,400 --screenshot="$screenshot" "$through/" 2>/dev/null ||
      fail "no screenshot"
  fi
else
  echo "not tested: chromium is not installed"
fi

# ---- one end restarts
end "$remote"
run "$tunnel" remote "unix-listen:$scratch/link" --quiet
remote=${children[-1]}
wait_for 10 curl -s "$through/"
same index.html
end "$remote" "$local"

# ---- throughput, beside a relay that knows nothing of connections
if command -v socat >/dev/null; then
  run socat "UNIX-LISTEN:$scratch/relay,fork,backlog=64" TCP:127.0.0.1:8008
  run socat TCP-LISTEN:8881,bind=127.0.0.1,reuseaddr,fork "UNIX-CONNECT:$scratch/relay"
  start_tunnel "unix-listen:$scratch/link" "unix:$scratch/link"
  wait_for 10 curl -s http://127.0.0.1:8881/
  for round in 1 2 3; do
    echo "200 MB, round $round: tunnel $(speed_of "$through") MB/s," \
      "socat twice over $(speed_of http://127.0.0.1:8881) MB/s, direct $(speed_of "$gui") MB/s"
  done
  end "$remote" "$local"

  # ---- over a serial line
  run socat "pty,rawer,link=$scratch/line1" "pty,rawer,link=$scratch/line2"
  wait_for 10 test -e "$scratch/line2"
  start_tunnel "serial:$scratch/line1" "serial:$scratch/line2"
  head -c 3000000 "$scratch/www/large" >"$scratch/www/medium"
  same medium
  "$tunnel" remote "serial:$scratch/line1" --help >/dev/null || fail "--help fails"
  end "$remote" # the line does not tell: the new end's hello does
  run "$tunnel" remote "serial:$scratch/line1" --quiet
  wait_for 20 curl -s --max-time 2 "$through/"
  same medium
else
  echo "not tested: throughput and the serial line (socat is not installed)"
fi

[ "$failures" = 0 ] || exit 1
echo "all as it should be"

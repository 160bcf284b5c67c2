#!/usr/bin/env bash
# The demo gateway on this machine: installs the Debian packages, builds, creates the demo
# store and runs wsgated behind lighttpd on a local port, with the demo's device handler
# (`cds handler`) answering device commands.
#
#   deploy/run-demo.sh [start]   set up and (re)start; prints the endpoint, users and a curl
#   deploy/run-demo.sh fresh     the same, but the demo store is built anew
#   deploy/run-demo.sh stop      stop the daemon, the device handler and lighttpd
#   deploy/run-demo.sh status    say what runs
#
# Environment: WSGATE_PORT (default 8080), WSGATE_BIND (default 127.0.0.1), WSGATE_RUN_DIR
# (default run/ in this checkout), WSGATE_BUILD_DIR (default build/ in this checkout).
#
# Needs root only to install missing packages. The build, the daemon and lighttpd run as
# the owner of the checkout, so build/ and run/ stay theirs and the daemon's socket is
# reachable by lighttpd without opening it to other users. Starting again stops the
# running demo first and keeps the store, so values written through the demo survive.
set -euo pipefail
checkout=$(cd "$(dirname "$0")/.." && pwd)
port=${WSGATE_PORT:-8080}
bind=${WSGATE_BIND:-127.0.0.1}
run=${WSGATE_RUN_DIR:-$checkout/run}
build=${WSGATE_BUILD_DIR:-$checkout/build}
store=$run/cds.db
# The daemon's delta, alarm/event, system and trend logs (wsgated -h, -a, -s, -t).
logs=("$run/deadband.db" "$run/alarms.db" "$run/system.db" "$run/interval-trends.db")
socket=$run/wsgated.socket
host=$bind
[ "$host" = "0.0.0.0" ] && host=127.0.0.1
endpoint=http://$host:$port/ws

say() { printf '%s\n' "$*"; }
# Says what failed and shows the end of each log FILE that has something in it.
fail() {
  local file
  printf 'run-demo: %s\n' "$1" >&2
  shift
  for file in "$@"; do
    [ -s "$file" ] && { say "--- last lines of $file:"; tail -n 25 "$file"; } >&2
  done
  exit 1
}

# Runs a command as the owner of the checkout (directly when that is who we are).
owner_uid=$(stat -c %u "$checkout")
owner_gid=$(stat -c %g "$checkout")
owner_prefix=()
if [ "$(id -u)" -eq 0 ] && [ "$owner_uid" -ne 0 ]; then
  owner_prefix=(setpriv --reuid="$owner_uid" --regid="$owner_gid" --init-groups --)
fi
as_owner() { "${owner_prefix[@]}" "$@"; }

# The pid in FILE when that process is still the program NAME.
live_pid() {
  local file=$1 name=$2 pid
  [ -r "$file" ] || return 1
  pid=$(cat "$file")
  [[ $pid =~ ^[0-9]+$ ]] || return 1
  tr '\0' ' ' < "/proc/$pid/cmdline" 2>/dev/null | grep -q "$name" || return 1
  echo "$pid"
}

stop_one() {
  local file=$1 name=$2 pid
  if pid=$(live_pid "$file" "$name"); then
    kill -TERM "$pid" 2>/dev/null || true
    for _ in $(seq 100); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
    if kill -0 "$pid" 2>/dev/null; then
      say "$name ($pid) did not stop within 10 s; killing it"
      kill -KILL "$pid" 2>/dev/null || true
    fi
    say "stopped $name ($pid)"
  fi
  rm -f "$file"
}

stop_demo() {
  stop_one "$run/lighttpd.pid" lighttpd
  stop_one "$run/handler.pid" "cds handler"
  stop_one "$run/wsgated.pid" wsgated
}

status_demo() {
  local pid
  if pid=$(live_pid "$run/wsgated.pid" wsgated); then say "wsgated runs ($pid)"; else say "wsgated is not running"; fi
  if pid=$(live_pid "$run/handler.pid" "cds handler"); then say "the device handler runs ($pid)"; else say "the device handler is not running"; fi
  if pid=$(live_pid "$run/lighttpd.pid" lighttpd); then say "lighttpd runs ($pid), $endpoint"; else say "lighttpd is not running"; fi
}

port_busy() { (exec 3<>"/dev/tcp/$host/$port") 2>/dev/null; }

build_tree() {
  say "building in $build (log: $run/log/build.log) ..."
  if ! as_owner bash -c 'cmake -S "$1" -B "$2" -DCMAKE_BUILD_TYPE=RelWithDebInfo &&
                         cmake --build "$2" -j"$(nproc)" --target wsgated cds wsgate_wsdl' \
         _ "$checkout" "$build" > "$run/log/build.log" 2>&1; then
    fail "the build failed" "$run/log/build.log"
  fi
}

make_store() {
  local fresh=$1 file
  if [ "$fresh" = yes ]; then
    for file in "$store" "${logs[@]}"; do rm -f "$file" "$file-wal" "$file-shm"; done
  fi
  if [ -s "$store" ]; then
    say "keeping the demo store $store and its logs (deploy/run-demo.sh fresh builds them anew)"
    return
  fi
  # A new store gets the demo's history too; --force replaces logs left from an older store.
  CDS_PATH=$store as_owner "$build/bin/cds" demo --force --logs "$run" > "$run/log/demo.log" 2>&1 ||
    fail "cds demo could not build the demo store" "$run/log/demo.log"
  say "built the demo store $store and its history (delta, alarm, system and trend logs)"
}

start_daemon() {
  rm -f "$socket" "$run/wsgated.pid"
  # -d keeps the daemon in the foreground of its own session, so its pid is known and its
  # diagnostics go to the log instead of /dev/null. The pid is written by the process that
  # then execs the daemon, since setsid may have forked on the way.
  (cd "$run" && export CDS_PATH=$store WSGATED_SOCKET=$socket &&
     exec setsid "${owner_prefix[@]}" sh -c 'echo $$ > wsgated.pid && exec "$@"' sh \
       "$build/bin/wsgated" -d -h "${logs[0]}" -a "${logs[1]}" -s "${logs[2]}" -t "${logs[3]}" \
       >> "$run/log/wsgated.log" 2>&1 < /dev/null) &
  for _ in $(seq 100); do [ -s "$run/wsgated.pid" ] && break; sleep 0.05; done
  for _ in $(seq 200); do
    [ -S "$socket" ] && return
    kill -0 "$(cat "$run/wsgated.pid")" 2>/dev/null || fail "wsgated stopped at start" "$run/log/wsgated.log"
    sleep 0.05
  done
  fail "wsgated did not open its socket $socket within 10 s" "$run/log/wsgated.log"
}

# The demo's device handler, in its own session like the daemon, logging to log/handler.log.
start_handler() {
  rm -f "$run/handler.pid"
  (cd "$run" && export CDS_PATH=$store &&
     exec setsid "${owner_prefix[@]}" sh -c 'echo $$ > handler.pid && exec "$@"' sh \
       "$build/bin/cds" handler >> "$run/log/handler.log" 2>&1 < /dev/null) &
  for _ in $(seq 100); do [ -s "$run/handler.pid" ] && break; sleep 0.05; done
  for _ in $(seq 100); do
    grep -q "handling the command queues" "$run/log/handler.log" 2>/dev/null && return
    kill -0 "$(cat "$run/handler.pid")" 2>/dev/null || fail "the device handler stopped at start" "$run/log/handler.log"
    sleep 0.05
  done
  fail "the device handler did not start within 5 s" "$run/log/handler.log"
}

check_port() {
  if port_busy; then
    local who=""
    command -v ss > /dev/null && who=$(ss -Hltnp "sport = :$port" 2>/dev/null | grep -o 'users:.*' | head -1)
    fail "port $port on $host is already in use${who:+ ($who)}; pick another: WSGATE_PORT=8081 $0"
  fi
}

# lighttpd tells why it cannot start (a missing module, a bad setting) on its standard
# error, before it opens its error log.
start_lighttpd() {
  as_owner lighttpd -f "$run/lighttpd.conf" > "$run/log/lighttpd-start.log" 2>&1 ||
    fail "lighttpd did not start" "$run/log/lighttpd-start.log" "$run/log/error.log"
}

# Polls the endpoint with a whoAmI as guest until lighttpd and the daemon both answer.
wait_until_answering() {
  local password=$1 body
  body='<?xml version="1.0" encoding="UTF-8"?><SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" xmlns:nsqv="http://wsgate.local/ws/BACnetWSKiteQV"><SOAP-ENV:Body><nsqv:whoAmI><options></options></nsqv:whoAmI></SOAP-ENV:Body></SOAP-ENV:Envelope>'
  for _ in $(seq 100); do
    if curl -fsS -m 2 -u "guest:$password" -H 'Content-Type: text/xml; charset=utf-8' \
         --data-binary "$body" "$endpoint" 2>/dev/null | grep -q '<result>guest</result>'; then
      return
    fi
    sleep 0.1
  done
  fail "no answer from $endpoint within 10 s" "$run/log/error.log" "$run/log/wsgated.log"
}

print_summary() {
  local users=$run/users operator_password
  operator_password=$(sed -n 's/^operator://p' "$users")
  cat <<EOF

The demo gateway runs.
  Explorer       http://$host:$port/  (open it in a browser; log in as operator below)
  SOAP endpoint  $endpoint  (POST, HTTP basic authentication)
  WSDL           http://$host:$port/wsdl/BACnetWSKite.wsdl   (values, writes, locales)
                 http://$host:$port/wsdl/BACnetWSKiteQV.wsdl (identity, time, logs, trends)
                 http://$host:$port/wsdl/BACnetWSKiteC3.wsdl, .../BACnetWSKiteTest.wsdl
  Users          $(sed 's/:/ \/ /' "$users" | paste -sd, - | sed 's/,/,  /g')
                 guest reads, operator reads and writes, admin may also remove and reset
  Files          $run (store cds.db, logs deadband.db, alarms.db, system.db,
                 interval-trends.db, users, lighttpd.conf, log/)
  Commands       the device handler (cds handler) answers the commands of /Meter1 and /AHU1

Read a value:
  curl -s -u operator:$operator_password -H 'Content-Type: text/xml; charset=utf-8' $endpoint -d '<?xml version="1.0" encoding="UTF-8"?><SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" xmlns:nsc1="http://wsgate.local/ws/BACnetWSKite"><SOAP-ENV:Body><nsc1:getValue><nsc1:options></nsc1:options><nsc1:path>/Meter1/Voltage</nsc1:path></nsc1:getValue></SOAP-ENV:Body></SOAP-ENV:Envelope>'

Stop it with: $0 stop     (docs/operations.md lists every operation)
EOF
}

start_demo() {
  local fresh=$1
  "$checkout/scripts/install-deps.sh" || fail "installing the Debian packages failed (run as root?)"
  as_owner mkdir -p "$run/log"
  stop_demo
  check_port
  build_tree
  make_store "$fresh"
  WSGATED_SOCKET=$socket WSGATE_BIND=$bind WSGATE_URL=$endpoint \
    as_owner "$checkout/deploy/site.sh" "$run" "$build/src/service/generated" "$port" ||
    fail "could not write the web server's configuration"
  start_daemon
  start_handler
  start_lighttpd
  wait_until_answering "$(sed -n 's/^guest://p' "$run/users")"
  print_summary
}

case "${1:-start}" in
  start) start_demo no ;;
  fresh) start_demo yes ;;
  stop) stop_demo ;;
  status) status_demo ;;
  *) echo "usage: $0 [start|fresh|stop|status]" >&2; exit 2 ;;
esac

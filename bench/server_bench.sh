#!/usr/bin/env bash
# Requests per second of whoAmI through wsgated beside the trivial FastCGI responder, in one
# run, and the daemon's resident memory after the load.
#
#   bench/server_bench.sh BUILD_DIR [REQUESTS]      (default 100000 requests)
set -euo pipefail
build=${1:?usage: server_bench.sh BUILD_DIR [REQUESTS]}
requests=${2:-100000}
bin=$(cd "$build/bin" && pwd)
work=$(mktemp -d)
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"; }
trap cleanup EXIT

body=$work/whoami.xml
cat > "$body" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" xmlns:nsqv="http://wsgate.local/ws/BACnetWSKiteQV"><SOAP-ENV:Body><nsqv:whoAmI><options></options></nsqv:whoAmI></SOAP-ENV:Body></SOAP-ENV:Envelope>
XML

wait_socket() { for _ in $(seq 500); do [ -S "$1" ] && return 0; sleep 0.01; done; echo "no socket $1" >&2; exit 1; }
rss_kb() { awk '/^VmRSS/ {print $2}' "/proc/$1/status"; }
rps_of() { sed -n 's/.* rps=\([0-9]*\).*/\1/p' <<<"$1"; }

"$bin/trivial_responder" "$work/trivial.socket" & pids+=($!)
CDS_PATH=$work/cds.db WSGATED_SOCKET=$work/wsgated.socket "$bin/wsgated" -d 2>/dev/null &
daemon=$!; pids+=($daemon)
wait_socket "$work/trivial.socket"; wait_socket "$work/wsgated.socket"

load() { "$bin/fcgi_load" --socket "$1" --body "$body" --requests "$2" --connections 2 \
           --param REMOTE_USER=bench --param REMOTE_ADDR=127.0.0.1 --expect '<result>bench</result>'; }
load "$work/wsgated.socket" 1000 >/dev/null   # warm-up
rss_start=$(rss_kb "$daemon")
trivial=$(load "$work/trivial.socket" "$requests")
daemon_run=$(load "$work/wsgated.socket" "$requests")
rss_end=$(rss_kb "$daemon")

echo "trivial responder: $trivial"
echo "wsgated whoAmI:    $daemon_run"
awk -v d="$(rps_of "$daemon_run")" -v t="$(rps_of "$trivial")" \
  'BEGIN { printf "ratio wsgated/trivial: %.2f (goal >= 0.80)\n", d / t }'
echo "wsgated RSS: ${rss_start} kB after warm-up, ${rss_end} kB after $requests requests (goal < 8192 kB)"

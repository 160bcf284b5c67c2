#!/usr/bin/env bash
# Requests per second of getValue through lighttpd (basic authentication, FastCGI to
# wsgated) beside the trivial FastCGI responder behind the same lighttpd, in one run, and
# their ratio. The site is the one deploy/site.sh writes; wrk sends the POSTs (soap_post.lua).
#
#   bench/lighttpd_bench.sh BUILD_DIR [SECONDS] [CONNECTIONS]   (default 10 s, 8 connections)
set -euo pipefail
build=${1:?usage: lighttpd_bench.sh BUILD_DIR [SECONDS] [CONNECTIONS]}
seconds=${2:-10}
connections=${3:-8}
here=$(cd "$(dirname "$0")" && pwd)
bin=$(cd "$build/bin" && pwd)
wsdl=$(cd "$build/src/service/generated" && pwd)
for tool in wrk lighttpd; do
  command -v "$tool" > /dev/null || { echo "lighttpd_bench: $tool is not installed" >&2; exit 1; }
done
work=$(mktemp -d)
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; wait 2>/dev/null; rm -rf "$work"; }
trap cleanup EXIT

free_port() { /usr/bin/python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }
wait_for() { for _ in $(seq 500); do eval "$1" && return 0; sleep 0.01; done; echo "lighttpd_bench: timed out: $1" >&2; exit 1; }

port=$(free_port)
CDS_PATH=$work/cds.db "$bin/cds" demo > /dev/null
WSGATED_SOCKET=$work/wsgated.socket "$here/../deploy/site.sh" "$work/site" "$wsdl" "$port" > /dev/null
# The yardstick beside the real endpoint, behind the same authentication.
cat >> "$work/site/lighttpd.conf" <<CONF
\$HTTP["url"] == "/trivial" {
  url.access-deny = ( )
  auth.require = ( "" => ( "method" => "basic", "realm" => "wsgate", "require" => "valid-user" ) )
  fastcgi.server = ( "" => ( "trivial" => ( "socket" => "$work/trivial.socket", "check-local" => "disable" ) ) )
}
CONF

"$bin/trivial_responder" "$work/trivial.socket" & pids+=($!)
CDS_PATH=$work/cds.db WSGATED_SOCKET=$work/wsgated.socket "$bin/wsgated" -d 2> "$work/wsgated.log" & pids+=($!)
lighttpd -D -f "$work/site/lighttpd.conf" & pids+=($!)
wait_for "[ -S '$work/trivial.socket' ] && [ -S '$work/wsgated.socket' ]"
wait_for "(exec 3<>/dev/tcp/127.0.0.1/$port) 2>/dev/null"

cat > "$work/getValue.xml" <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" xmlns:nsc1="http://wsgate.local/ws/BACnetWSKite"><SOAP-ENV:Body><nsc1:getValue><nsc1:options></nsc1:options><nsc1:path>/Meter1/Voltage</nsc1:path></nsc1:getValue></SOAP-ENV:Body></SOAP-ENV:Envelope>
XML
password=$(sed -n 's/^guest://p' "$work/site/users")
export WRK_AUTH="Basic $(printf 'guest:%s' "$password" | base64 -w0)"
# getValue of a demo point.
expect='<nsc1:getValueResult>230.4</nsc1:getValueResult>'
export WRK_BODY=$work/getValue.xml

load() {  # URL EXPECT SECONDS
  WRK_EXPECT=$2 wrk -t 2 -c "$connections" -d "${3}s" -s "$here/soap_post.lua" "$1" | grep '^requests='
}
load "http://127.0.0.1:$port/ws" "$expect" 1 > /dev/null  # warm-up
trivial=$(load "http://127.0.0.1:$port/trivial" '<result>bench</result>' "$seconds")
daemon=$(load "http://127.0.0.1:$port/ws" "$expect" "$seconds")

rps_of() { sed -n 's/.* rps=\([0-9]*\).*/\1/p' <<<"$1"; }
echo "lighttpd + trivial responder: $trivial"
echo "lighttpd + wsgated getValue:  $daemon"
awk -v d="$(rps_of "$daemon")" -v t="$(rps_of "$trivial")" \
  'BEGIN { printf "ratio wsgated/trivial through lighttpd: %.2f\n", d / t }'

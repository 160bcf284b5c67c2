#!/usr/bin/env bash
# Soak: a fixed mix of operations through wsgated on the demo gateway, REQUESTS in all
# (default 1,000,000) on two connections: reads, arrays, writes, locales, identity and time,
# an error text and a fault. Every answer must carry what its operation should answer.
# Reports the errors, requests per second, and the daemon's resident memory after warm-up,
# at its highest during the run and at the end; checks that the daemon is still running.
#
#   bench/soak.sh BUILD_DIR [REQUESTS]
#
# Exit status 0 when there were no errors and the daemon survived. Everything runs in a
# temporary directory, removed at the end with the processes started.
set -euo pipefail
build=${1:?usage: soak.sh BUILD_DIR [REQUESTS]}
requests=${2:-1000000}
bin=$(cd "$build/bin" && pwd)
work=$(mktemp -d)
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; rm -rf "$work"; }
trap cleanup EXIT

# body NAME EXPECT XML: one request of the mix, in the envelope, with the text its answer
# must contain.
load_args=()
body() {
  printf '<?xml version="1.0" encoding="UTF-8"?>\n<SOAP-ENV:Envelope xmlns:SOAP-ENV="%s" %s %s><SOAP-ENV:Body>%s</SOAP-ENV:Body></SOAP-ENV:Envelope>\n' \
    "http://schemas.xmlsoap.org/soap/envelope/" \
    'xmlns:nsc1="http://wsgate.local/ws/BACnetWSKite"' \
    'xmlns:nsqv="http://wsgate.local/ws/BACnetWSKiteQV"' "$3" > "$work/$1.xml"
  load_args+=(--body "$1.xml" --expect "$2")
}
strings() { for p in "$@"; do printf '<nsc1:string>%s</nsc1:string>' "$p"; done; }

body getValue '>230.4<' \
  '<nsc1:getValue><nsc1:path>/Meter1/Voltage</nsc1:path></nsc1:getValue>'
body getValues '>Closed<' "<nsc1:getValues><nsc1:paths>$(strings /Meter1/Voltage \
  /Meter1/Current /Meter1/Power /Meter1/Energy /Meter1/Breaker /Meter1/Mode /Meter1/Status \
  /AHU1/SupplyTemp /AHU1/Fan /Meter1/Voltage/Value.Time)</nsc1:paths></nsc1:getValues>"
body getRelativeValues '>41.7<' '<nsc1:getRelativeValues><nsc1:basePath>/Meter1/</nsc1:basePath><nsc1:paths>Voltage</nsc1:paths><nsc1:paths>Current</nsc1:paths><nsc1:paths>Voltage/.HiCriticalLimit</nsc1:paths></nsc1:getRelativeValues>'
body getArray '>Voltage<' '<nsc1:getArray><nsc1:path>/Meter1:Children</nsc1:path></nsc1:getArray>'
body getArrayRange '>Heat<' '<nsc1:getArrayRange><nsc1:path>/AHU1/Mode/PossibleValues</nsc1:path><nsc1:index>1</nsc1:index><nsc1:count>2</nsc1:count></nsc1:getArrayRange>'
body getArraySize '<nsc1:getArraySizeResult>4<' \
  '<nsc1:getArraySize><nsc1:path>/AHU1/Mode/PossibleValues</nsc1:path></nsc1:getArraySize>'
body setValue '>21.5<' \
  '<nsc1:setValue><nsc1:path>/AHU1/Setpoint</nsc1:path><nsc1:value>21.5</nsc1:value></nsc1:setValue>'
body setValues '>Cool<' '<nsc1:setValues><nsc1:paths>/AHU1/Fan</nsc1:paths><nsc1:paths>/AHU1/Mode</nsc1:paths><nsc1:values>On</nsc1:values><nsc1:values>Cool</nsc1:values></nsc1:setValues>'
body getDefaultLocale '>en-US<' '<nsc1:getDefaultLocale/>'
body getSupportedLocales '>en-US<' '<nsc1:getSupportedLocales/>'
body whoAmI '<result>operator</result>' '<nsqv:whoAmI/>'
body getLocalAndUtcTime '<utcTime>' '<nsqv:getLocalAndUtcTime/>'
body errorText '? 9 Node Not Found' \
  '<nsc1:getValue><nsc1:path>/No/Such/Point</nsc1:path></nsc1:getValue>'
body fault 'not implemented' '<nsc1:noSuchOperation/>'

wait_socket() { for _ in $(seq 1000); do [ -S "$1" ] && return 0; sleep 0.01; done; echo "no socket $1" >&2; exit 1; }
rss_kb() { awk '/^VmRSS/ {print $2}' "/proc/$1/status"; }

export CDS_PATH=$work/cds.db WSGATED_SOCKET=$work/wsgated.socket
"$bin/cds" demo >/dev/null
(cd "$work" && exec "$bin/wsgated" -d 2>/dev/null) &
daemon=$!; pids+=($daemon)
wait_socket "$WSGATED_SOCKET"

load() { (cd "$work" && "$bin/fcgi_load" --socket "$WSGATED_SOCKET" "${load_args[@]}" \
           --requests "$1" --connections 2 --param REMOTE_USER=operator \
           --param REMOTE_ADDR=127.0.0.1); }
load 14000 >/dev/null   # warm-up: every body a thousand times
rss_start=$(rss_kb "$daemon")
# The highest resident memory during the run, sampled every second.
(peak=0; while kill -0 "$daemon" 2>/dev/null; do
   r=$(rss_kb "$daemon" 2>/dev/null || echo 0); [ "$r" -gt "$peak" ] && peak=$r && echo "$peak" > "$work/peak"
   sleep 1; done) & pids+=($!)
status=0
result=$(load "$requests") || status=$?
rss_end=$(rss_kb "$daemon")
alive=yes; kill -0 "$daemon" 2>/dev/null || { alive=no; status=1; }

echo "$result"
echo "wsgated RSS: ${rss_start} kB after warm-up, $(cat "$work/peak" 2>/dev/null || echo "$rss_end") kB at most, ${rss_end} kB after $requests mixed requests"
awk -v s="$rss_start" -v e="$rss_end" 'BEGIN { printf "RSS growth: %+.1f %%\n", 100 * (e - s) / s }'
echo "daemon still running: $alive"
exit $status

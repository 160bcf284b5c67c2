#!/usr/bin/env bash
# Writes what the web front needs into a run directory: the lighttpd configuration, the
# demo users, the served copies of the WSDL and schemas with the real endpoint address, and
# the explorer page (web/).
# run-demo.sh and the end-to-end tests both use it, so they test the same configuration.
#
#   deploy/site.sh RUN_DIR WSDL_DIR PORT
#
# WSDL_DIR holds the generated *.wsdl and *.xsd (BUILD/src/service/generated, or an installed
# share/wsgate/wsdl); they are copied, never changed. Environment (all optional):
#   WSGATE_BIND        listening address (default 127.0.0.1)
#   WSGATE_URL         public endpoint written into the WSDL (default http://BIND:PORT/ws)
#   WSGATED_SOCKET     the daemon's socket (default RUN_DIR/wsgated.socket)
#   WSGATE_TLS_PORT    adds an HTTPS listener on this port ...
#   WSGATE_TLS_PEM     ... with this certificate and key (one PEM file)
#   WSGATE_USER        lighttpd changes to this user when started as root
#
# Written in RUN_DIR: lighttpd.conf (rewritten every time), users (kept once made: the
# passwords stay), nginx-site.conf and nginx.users (the same site for nginx), www/wsdl/,
# www/index.html, www/explorer.js, www/explorer.css, log/.
set -euo pipefail
if [ $# -ne 3 ]; then
  echo "usage: site.sh RUN_DIR WSDL_DIR PORT" >&2
  exit 2
fi
deploy=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$1"
run=$(cd "$1" && pwd)
wsdl_dir=$2
port=$3
bind=${WSGATE_BIND:-127.0.0.1}
socket=${WSGATED_SOCKET:-$run/wsgated.socket}
url=${WSGATE_URL:-http://$bind:$port/ws}

fail() { echo "site.sh: $*" >&2; exit 1; }
[[ $port =~ ^[0-9]+$ ]] && [ "$port" -ge 1 ] && [ "$port" -le 65535 ] || fail "bad port: $port"
ls "$wsdl_dir"/*.wsdl >/dev/null 2>&1 || fail "no WSDL files in $wsdl_dir (is the tree built?)"
# lighttpd's and nginx's configuration strings take these paths as they are.
for path in "$run" "$socket" "$deploy"; do
  [[ $path =~ [\"\\\$\;[:space:]] ]] && fail "unusable path (quote, space or ;): $path"
done
# A Unix socket path has room for 107 bytes.
[ ${#socket} -le 107 ] || fail "socket path longer than 107 bytes: $socket (set WSGATED_SOCKET)"

mkdir -p "$run/www/wsdl" "$run/log"

# Users: made once with fresh passwords; guest has no rights rule of its own and reads
# through the "*" rule, operator and admin have their own rules in the store.
if [ ! -s "$run/users" ]; then
  umask 077
  for user in guest operator admin; do
    printf '%s:%s\n' "$user" "$(head -c 32 /dev/urandom | base64 | tr -dc 'A-Za-z0-9' | head -c 12)"
  done > "$run/users.tmp"
  mv "$run/users.tmp" "$run/users"
  umask 022
fi
# nginx reads the same passwords in its {PLAIN} scheme.
sed 's/:/:{PLAIN}/' "$run/users" > "$run/nginx.users"
chmod 600 "$run/nginx.users"

# The served WSDL: the build's files with the real endpoint as soap:address.
for source in "$wsdl_dir"/*.wsdl "$wsdl_dir"/*.xsd; do
  URL=$url perl -0pe '
    s{(<SOAP:address\s+location=")[^"]*(")}{$1$ENV{URL}$2}g;
  ' "$source" > "$run/www/wsdl/$(basename "$source").tmp"
  mv "$run/www/wsdl/$(basename "$source").tmp" "$run/www/wsdl/$(basename "$source")"
done

# The explorer page, copied beside the WSDL (each file replaced whole, never half written).
for source in "$deploy/../web"/*; do
  cp "$source" "$run/www/$(basename "$source").tmp"
  mv "$run/www/$(basename "$source").tmp" "$run/www/$(basename "$source")"
done

{
  echo "# Written by deploy/site.sh; rewritten on every run."
  echo "var.wsgate_bind     = \"$bind\""
  echo "var.wsgate_port     = $port"
  echo "var.wsgate_socket   = \"$socket\""
  echo "var.wsgate_docroot  = \"$run/www\""
  echo "var.wsgate_userfile = \"$run/users\""
  echo "var.wsgate_logdir   = \"$run/log\""
  echo "var.wsgate_pidfile  = \"$run/lighttpd.pid\""
  echo "var.wsgate_confdir  = \"$deploy/lighttpd\""
  [ -n "${WSGATE_USER:-}" ] && [ "$(id -u)" -eq 0 ] && echo "server.username = \"$WSGATE_USER\""
  echo "include \"$deploy/lighttpd/wsgate.conf\""
  if [ -n "${WSGATE_TLS_PORT:-}" ]; then
    [ -r "${WSGATE_TLS_PEM:-}" ] || fail "WSGATE_TLS_PORT needs WSGATE_TLS_PEM (certificate and key)"
    echo "var.wsgate_tls_port = \"$WSGATE_TLS_PORT\""
    echo "var.wsgate_tls_pem  = \"$WSGATE_TLS_PEM\""
    echo "include \"$deploy/lighttpd/tls.conf\""
  fi
} > "$run/lighttpd.conf"

sed -e "s|@BIND@|$bind|g" -e "s|@PORT@|$port|g" -e "s|@SOCKET@|$socket|g" -e "s|@RUN@|$run|g" \
  "$deploy/nginx/wsgate-site.conf" > "$run/nginx-site.conf"

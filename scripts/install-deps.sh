#!/usr/bin/env bash
# Installs every Debian package that wsgate needs to build, test, benchmark and run.
# Idempotent; needs root (or sudo).
set -euo pipefail
packages=(
  build-essential cmake pkg-config git
  gsoap libgsoap-dev libfcgi-dev libfcgi-bin libboost-regex-dev libsqlite3-dev sqlite3
  nlohmann-json3-dev googletest libgtest-dev libbenchmark-dev
  clang libclang-rt-14-dev
  lighttpd python3 python3-zeep curl wrk openssl
  util-linux mount diffutils  # unshare, mount and cmp: the reset test's private mount namespace
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -eq 0 ] || sudo=sudo
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -q
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"

#!/usr/bin/env bash
# Installs every Debian package that wsgate needs to build, test, benchmark and run.
# Idempotent; needs root (or sudo).
set -euo pipefail
# A lighttpd module outside the lighttpd package is a package of its own (dpkg -S names it):
# the HTTPS listener of deploy/lighttpd/tls.conf needs lighttpd-mod-openssl.
packages=(
  # build
  build-essential cmake pkg-config git
  gsoap libgsoap-dev libfcgi-dev libfcgi-bin libboost-regex-dev libsqlite3-dev sqlite3
  nlohmann-json3-dev googletest libgtest-dev libbenchmark-dev
  # the fuzzer and the sanitizer builds
  clang libclang-rt-14-dev
  # the web fronts, the end-to-end tests and the benchmarks
  lighttpd lighttpd-mod-openssl nginx python3 python3-zeep curl wrk openssl iproute2
  # the explorer page's chart library, served from /usr/share/javascript, and its browser test
  libjs-chart.js chromium chromium-driver python3-selenium
  # scripts/coverage.sh
  gcovr
  # scripts/check-fresh-machine.sh
  debootstrap
  # the reset test's private mount namespace: unshare, mount and cmp
  util-linux mount diffutils
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

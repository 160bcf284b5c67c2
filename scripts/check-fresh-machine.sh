#!/usr/bin/env bash
# Proves the README's two commands on a machine that has none of wsgate's packages: builds a
# fresh Debian 12 (bookworm) root with debootstrap in DIR, copies a clean `git archive` of
# HEAD into it as the checkout of an ordinary user, and inside it (chroot) runs
#   1. `./deploy/run-demo.sh` as root (as `sudo` would), checks that a getValue through
#      http://127.0.0.1:PORT/ws answers with the demo value, and stops the demo;
#   2. `./scripts/test.sh` as that user.
# Prints the time of each step; exits 0 when both passed. Rerunning starts from a new root.
#
#   sudo scripts/check-fresh-machine.sh [DIR]     (default /var/tmp/wsgate-fresh)
#
# Environment: WSGATE_PORT (default 8080), the demo's port; it must be free on this machine,
# since the root shares this machine's network. Needs root, Debian's mirror and about 2 GB
# in DIR. The root (DIR/root) and the log of the run (DIR/check.log) are kept for a look
# afterwards; /proc, /sys, /dev, /dev/pts and /dev/shm are mounted into the root only while
# the script runs, and are unmounted on every exit.
set -euo pipefail
checkout=$(cd "$(dirname "$0")/.." && pwd)
dir=$(realpath -m "${1:-/var/tmp/wsgate-fresh}")
root=$dir/root
port=${WSGATE_PORT:-8080}
mirror=http://deb.debian.org/debian
user=dev
home=/home/$user
start=$SECONDS

say() { printf '[%s] %s\n' "$(date +%H:%M:%S)" "$*"; }
fail() { say "FAILED: $*"; exit 1; }
elapsed() { local s=$((SECONDS - $1)); printf '%dm%02ds' $((s / 60)) $((s % 60)); }

[ "$(id -u)" -eq 0 ] || { echo "check-fresh-machine: needs root (sudo $0)" >&2; exit 2; }
[[ $port =~ ^[0-9]+$ ]] || { echo "check-fresh-machine: bad port: $port" >&2; exit 2; }

# Mount points under the root that are mounted now, deepest first.
mounted_under() {
  awk -v r="$1" '$5 == r || index($5, r "/") == 1 { print $5 }' /proc/self/mountinfo | sort -r
}

# Processes whose root directory is the chroot: anything the run left behind.
processes_inside() {
  local p
  for p in /proc/[0-9]*; do
    [ "$(readlink "$p/root" 2>/dev/null)" = "$root" ] && echo "${p#/proc/}"
  done
  return 0
}

cleanup() {
  local rc=$? pids m
  mapfile -t pids < <(processes_inside)
  if [ ${#pids[@]} -gt 0 ]; then
    say "stopping what still runs inside the root: ${pids[*]}"
    kill -TERM "${pids[@]}" 2>/dev/null || true
    for _ in $(seq 50); do [ -z "$(processes_inside)" ] && break; sleep 0.1; done
    mapfile -t pids < <(processes_inside)
    [ ${#pids[@]} -eq 0 ] || kill -KILL "${pids[@]}" 2>/dev/null || true
  fi
  for m in $(mounted_under "$root"); do
    umount "$m" || umount -l "$m" || say "could not unmount $m"
  done
  if [ -n "$(mounted_under "$root")" ]; then
    say "still mounted under $root: $(mounted_under "$root" | tr '\n' ' ')"
    rc=1
  fi
  say "total $(elapsed "$start"); root and log kept in $dir"
  exit "$rc"
}

# A root left mounted by a killed run is never deleted: rm would walk into /dev and /proc.
[ -z "$(mounted_under "$root")" ] ||
  fail "something is mounted under $root; unmount it first: $(mounted_under "$root" | tr '\n' ' ')"
if ! command -v debootstrap > /dev/null; then
  say "installing debootstrap"
  apt-get update -q > /dev/null && apt-get install -y -q debootstrap > /dev/null
fi
rm -rf "$root"
mkdir -p "$dir"
exec > >(tee "$dir/check.log") 2>&1
trap cleanup EXIT
trap 'exit 130' INT TERM HUP
say "checking $(git -C "$checkout" rev-parse --short HEAD) in a fresh Debian 12 root: $root"

step=$SECONDS
say "debootstrap (minbase) from $mirror"
debootstrap --variant=minbase bookworm "$root" "$mirror" > "$dir/debootstrap.log" 2>&1 ||
  fail "debootstrap failed; see $dir/debootstrap.log"
cat > "$root/etc/apt/sources.list" <<EOF
deb $mirror bookworm main
deb $mirror bookworm-updates main
deb http://deb.debian.org/debian-security bookworm-security main
EOF
cp /etc/resolv.conf "$root/etc/resolv.conf"
# Every installed machine names localhost in /etc/hosts (the browser test's driver is reached
# by that name); a minbase root has no such file.
[ -e "$root/etc/hosts" ] || printf '127.0.0.1\tlocalhost\n::1\tlocalhost ip6-localhost ip6-loopback\n' > "$root/etc/hosts"
# Packages must not start their services here (lighttpd and nginx would take port 80 of
# this machine and keep the root busy): the usual guard of a chroot.
printf '#!/bin/sh\nexit 101\n' > "$root/usr/sbin/policy-rc.d"
chmod 755 "$root/usr/sbin/policy-rc.d"
chroot "$root" useradd --create-home --shell /bin/bash "$user"
mkdir "$root$home/wsgate"
git -C "$checkout" archive HEAD | tar -x -C "$root$home/wsgate"
chroot "$root" chown -R "$user:$user" "$home/wsgate"
say "root ready in $(elapsed "$step")"

mount -t proc proc "$root/proc"
mount -t sysfs sysfs "$root/sys"
# Bind mounts are made private, so that nothing mounted or unmounted under them reaches
# this machine's own /dev.
mount --bind /dev "$root/dev" && mount --make-private "$root/dev"
mount --bind /dev/pts "$root/dev/pts" && mount --make-private "$root/dev/pts"
mount -t tmpfs -o mode=1777 shm "$root/dev/shm"

# in_root [--userspec=U:G] COMMAND: a login-like clean environment inside the root.
in_root() {
  local user_opt=()
  [[ ${1:-} == --userspec=* ]] && { user_opt=("$1"); shift; }
  chroot "${user_opt[@]}" "$root" /usr/bin/env -i HOME="${HOME_IN:-/root}" LANG=C.UTF-8 \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    WSGATE_PORT="$port" /bin/bash -c "cd $home/wsgate && $1"
}

step=$SECONDS
say "README command 1: sudo ./deploy/run-demo.sh"
in_root ./deploy/run-demo.sh || fail "run-demo.sh failed"
say "demo up in $(elapsed "$step")"

password=$(sed -n 's/^operator://p' "$root$home/wsgate/run/users")
answer=$(curl -sS -m 10 -u "operator:$password" -H 'Content-Type: text/xml; charset=utf-8' \
  "http://127.0.0.1:$port/ws" --data-binary '<?xml version="1.0" encoding="UTF-8"?><SOAP-ENV:Envelope xmlns:SOAP-ENV="http://schemas.xmlsoap.org/soap/envelope/" xmlns:nsc1="http://wsgate.local/ws/BACnetWSKite"><SOAP-ENV:Body><nsc1:getValue><nsc1:options></nsc1:options><nsc1:path>/Meter1/Voltage</nsc1:path></nsc1:getValue></SOAP-ENV:Body></SOAP-ENV:Envelope>') ||
  fail "no answer from http://127.0.0.1:$port/ws"
grep -q '<nsc1:getValueResult>230.4</nsc1:getValueResult>' <<<"$answer" ||
  fail "getValue /Meter1/Voltage answered: $answer"
say "getValue /Meter1/Voltage through lighttpd: 230.4"
in_root "./deploy/run-demo.sh stop" || fail "run-demo.sh stop failed"

step=$SECONDS
say "README command 2: ./scripts/test.sh (as $user)"
HOME_IN=$home in_root --userspec="$user:$user" ./scripts/test.sh > "$dir/test.log" 2>&1 ||
  { tail -n 60 "$dir/test.log"; fail "scripts/test.sh failed; see $dir/test.log"; }
grep -E 'tests passed|tests failed' "$dir/test.log" || true
say "tests passed in $(elapsed "$step")"
say "PASSED"

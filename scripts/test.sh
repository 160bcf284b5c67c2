#!/usr/bin/env bash
# Builds wsgate and runs every test: all unit and end-to-end tests of the normal build, then
# the unit tests (label "unit") and the end-to-end tests labelled "sanitize" under
# AddressSanitizer and UndefinedBehaviorSanitizer, with leak detection: a daemon that leaks
# at its orderly stop fails its test. Installs missing Debian packages first. Idempotent.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)

cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DWSGATE_SANITIZE=ON >/dev/null
cmake --build build-asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs" -L '^(unit|sanitize)$'

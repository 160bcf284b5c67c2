#!/usr/bin/env bash
# Builds the request fuzzer (libFuzzer with clang, ASan and UBSan) and runs it for SECONDS
# seconds (default 60) from the seed corpus with the contract's dictionary. Inputs that add
# coverage collect in BUILD/corpus. A finding (crash, sanitizer report, leak, time-out or
# incomplete answer) is saved in BUILD/findings/ and the script exits non-zero; rerun the
# fuzzer binary on that file to see the report. Once fixed, copy the file to
# tests/fuzz/regressions/: the unit tests replay it in every build from then on.
#
#   scripts/fuzz.sh [SECONDS] [more libFuzzer options, e.g. -max_len=400000]
#
# BUILD is build-fuzz/ unless WSGATE_FUZZ_BUILD_DIR names another directory.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
[ $# -gt 0 ] && shift
build=${WSGATE_FUZZ_BUILD_DIR:-build-fuzz}

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DWSGATE_FUZZ=ON \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build "$build" -j"$(nproc)" --target request_fuzzer
mkdir -p "$build/corpus" "$build/findings"

# 64 KiB holds every seed with room to grow lists; -close_fd_mask=2 silences the daemon's
# diagnostics (libFuzzer and the sanitizers keep their own output).
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  "$build/bin/request_fuzzer" "$build/corpus" tests/fuzz/corpus \
  -dict=tests/fuzz/wsgate.dict -max_len=65536 -timeout=10 -rss_limit_mb=2048 \
  -close_fd_mask=2 -print_final_stats=1 -artifact_prefix="$build/findings/" \
  -max_total_time="$seconds" "$@"

#!/usr/bin/env bash
# Measures how much of wsgate's own code the whole test suite runs: builds BUILD_DIR
# (default build-cov) with gcc's --coverage, runs every test there (unit and end to end: the
# daemons under test write their counts when they stop), and prints gcovr's line and branch
# summary over src/ and tools/ (generated sources excluded). Run it before and after a change
# to the tests: a fall in the line figure names code that no test reaches any more.
#
#   scripts/coverage.sh [BUILD_DIR]          e.g. scripts/coverage.sh /tmp/cov
#   DETAIL=1 scripts/coverage.sh             also list the lines not run, per file
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
build=${1:-build-cov}
jobs=$(nproc)
# ccache's base directory would record relative source paths, which gcovr cannot resolve.
unset CCACHE_BASEDIR

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_CXX_FLAGS=--coverage -DCMAKE_C_FLAGS=--coverage \
  -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage >/dev/null
cmake --build "$build" -j"$jobs"
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" -j"$jobs" --output-on-failure || echo "coverage: some tests failed; the figures below count what ran"

args=(--root . --object-directory "$build" --exclude-directories "$build/CMakeFiles"
      --filter 'src/' --filter 'tools/'
      --exclude '.*/soap[^/]*\.(cpp|h)$' --exclude-unreachable-branches --print-summary)
if [ -n "${DETAIL:-}" ]; then
  gcovr "${args[@]}"
else
  gcovr "${args[@]}" -o "$build/coverage.txt"
fi

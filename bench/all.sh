#!/usr/bin/env bash
# Every benchmark in one go, RUNS times in turn (default 3), and one table of the medians,
# each figure with its goal:
#
#   bench/all.sh BUILD_DIR            RUNS=5 bench/all.sh BUILD_DIR
#
#   whoAmI ratio       whoAmI req/s of wsgated / of the trivial FastCGI responder, direct
#   getValue ratio     getValue req/s / trivial responder, direct and behind lighttpd
#   getValues x1000    p50 latency of one getValues of 1000 paths
#   per path / raw     that latency per path / a raw prepared SQLite lookup per path
#   RSS                the daemon's resident memory: idle, after getValues of 10,000 and of
#                      100,000 paths (back within 5 % of idle), after 40,000 whoAmI
#
# The lighttpd row is left out when lighttpd or wrk is missing. Each run's own output is
# kept in the directory printed at the end.
set -euo pipefail
build=$(cd "${1:?usage: all.sh BUILD_DIR}" && pwd)
runs=${RUNS:-3}
here=$(cd "$(dirname "$0")" && pwd)
out=$(mktemp -d /tmp/wsgate-bench-XXXXXX)
figures=$out/figures

# Appends "NAME VALUE" for every figure the output $2 holds of the pattern $3 (sed -E).
take() { sed -nE "s/$3/$1 \\1/p" "$2" >> "$figures"; }

for run in $(seq "$runs"); do
  echo "run $run of $runs" >&2
  log=$out/server.$run
  "$here/server_bench.sh" "$build" 40000 > "$log" 2>&1 || true
  take whoami_ratio "$log" '^ratio wsgated\/trivial: ([0-9.]+).*'
  take whoami_rss_kb "$log" '^wsgated RSS: .* ([0-9]+) kB after [0-9]+ requests.*'

  log=$out/values.$run
  python3 "$here/values_bench.py" "$build" --requests 40000 > "$log" 2>&1 || true
  take getvalue_ratio "$log" '^  ratio ([0-9.]+) .*'
  take getvalues1000_ms "$log" '^getValues x1000 p50 ([0-9.]+) ms.*'

  log=$out/memory.$run
  python3 "$here/values_bench.py" "$build" --memory > "$log" 2>&1 || true
  take idle_rss_kb "$log" '^wsgated RSS idle ([0-9]+) kB'
  take rss10k_kb "$log" '^wsgated RSS after getValues of 10000 paths ([0-9]+) kB.*'
  take rss100k_kb "$log" '^wsgated RSS after getValues of 100000 paths ([0-9]+) kB.*'

  log=$out/cds.$run
  (cd "$out" && "$build/bin/cds_bench" --benchmark_filter='BM_GetLeaves/1000$|BM_RawLookups/1000$' \
     --benchmark_color=false > "$log" 2>&1) || true
  take raw_ns_per_path "$log" '^  get_leaves\/1000 +[0-9]+ ns vs +([0-9]+) ns per path.*'

  if command -v lighttpd > /dev/null && command -v wrk > /dev/null; then
    log=$out/lighttpd.$run
    "$here/lighttpd_bench.sh" "$build" 5 > "$log" 2>&1 || true
    take lighttpd_ratio "$log" '^ratio wsgated\/trivial through lighttpd: ([0-9.]+)'
  fi
done

python3 - "$figures" "$runs" <<'PY'
import statistics, sys
runs = int(sys.argv[2])
values = {}
for line in open(sys.argv[1]):
    name, value = line.split()
    values.setdefault(name, []).append(float(value))
med = {k: statistics.median(v) for k, v in values.items()}
def spread(k):
    v = values.get(k, [])
    return "%g-%g" % (min(v), max(v)) if v else ""
rows = []
def row(label, key, unit, goal, met, value=None, span=None):
    if value is None:
        value = med.get(key)
    if value is None:
        rows.append((label, "missing", "", goal, "?"))
        return
    rows.append((label, ("%.2f" % value) + unit, span if span is not None else spread(key),
                 goal, "yes" if met(value) else "NO"))
row("whoAmI / trivial, direct", "whoami_ratio", "", ">= 0.80", lambda v: v >= 0.8)
row("getValue / trivial, direct", "getvalue_ratio", "", ">= 0.70", lambda v: v >= 0.7)
row("getValue / trivial, lighttpd", "lighttpd_ratio", "", ">= 0.70", lambda v: v >= 0.7)
row("getValues x1000 p50", "getvalues1000_ms", " ms", "< 20 ms", lambda v: v < 20)
if "getvalues1000_ms" in med and "raw_ns_per_path" in med:
    per_path = med["getvalues1000_ms"] * 1e6 / 1000
    row("getValues per path / raw", None, "x", "<= 1.50", lambda v: v <= 1.5,
        value=per_path / med["raw_ns_per_path"],
        span="%.2f us vs %.2f us" % (per_path / 1000, med["raw_ns_per_path"] / 1000))
row("RSS idle", "idle_rss_kb", " kB", "", lambda v: True)
row("RSS after 10,000 paths", "rss10k_kb", " kB", "< 8192 kB", lambda v: v < 8192)
if "idle_rss_kb" in med:
    for key, label in (("rss10k_kb", "10,000"), ("rss100k_kb", "100,000")):
        if key in med:
            growth = 100 * (med[key] - med["idle_rss_kb"]) / med["idle_rss_kb"]
            row("RSS growth after %s paths" % label, None, " %", "<= 5 %",
                lambda v: v <= 5, value=growth, span="")
row("RSS after 40,000 whoAmI", "whoami_rss_kb", " kB", "< 8192 kB", lambda v: v < 8192)
print("medians of %d runs" % runs)
print("| Figure | Median | Range | Goal | Met |")
print("|---|---|---|---|---|")
for r in rows:
    print("| %s | %s | %s | %s | %s |" % r)
PY
echo "outputs: $out" >&2

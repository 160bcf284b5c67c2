// The Data store client beside raw prepared SQLite statements on the same file.
//
// Each store call is measured next to the least work SQLite itself must do for it: a point
// lookup (or insert) with a prepared statement and pre-split keys. At the end the ratios
// store/raw are printed per path. Goals: get_leaves at most 2x the raw lookup per path, and
// a 1000-path get_leaves under 5 ms.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "platform/cds.h"

namespace {

constexpr int kDevices = 50;
constexpr int kPointsPerDevice = 40;  // 2000 nodes, 10000 leaves

struct Fixture {
  std::string dir;
  pcd_handle_t handle = nullptr;
  toolkit::CCds cds;
  sqlite3* raw = nullptr;
  sqlite3_stmt* raw_lookup = nullptr;
  sqlite3_stmt* raw_insert = nullptr;
  sqlite3_stmt* raw_begin = nullptr;
  sqlite3_stmt* raw_commit = nullptr;
  std::vector<std::string> paths;                         // leaf paths for the client
  std::vector<std::pair<std::string, std::string>> keys;  // the same, split for raw SQLite
};

Fixture* g_fixture = nullptr;

void populate(Fixture& f) {
  std::vector<std::string> nodes;
  std::vector<toolkit::leaf_write_t> leaves;
  for (int d = 0; d < kDevices; ++d) {
    for (int p = 0; p < kPointsPerDevice; ++p) {
      std::string node = "/Devices/Dev" + std::to_string(d) + "/Point" + std::to_string(p);
      nodes.push_back(node);
      toolkit::leaf_write_t w;
      w.path = node + "/Value";
      w.value.set_real(d * 100.0 + p / 7.0);
      leaves.push_back(w);
      for (const char* attr : {"Writable", "Units", ".Quality", "DisplayName"}) {
        w.path = node + "/" + attr;
        w.value = toolkit::CElement(std::string("text of ") + attr);
        leaves.push_back(w);
      }
    }
  }
  std::string error;
  if (f.cds.import(nodes, leaves, {}, "bench", error) != 0) {
    std::fprintf(stderr, "import failed: %s\n", error.c_str());
    std::exit(1);
  }
  // Spread the paths over the whole tree so that lookups do not all hit one page.
  for (size_t i = 0; i < nodes.size() && f.paths.size() < 1000; i += 2) {
    f.paths.push_back(nodes[i] + "/Value");
    f.keys.emplace_back(nodes[i], "Value");
  }
}

void setUp(Fixture& f) {
  char pattern[] = "/tmp/wsgate-bench-XXXXXX";
  f.dir = mkdtemp(pattern);
  setenv("CDS_PATH", (f.dir + "/cds.db").c_str(), 1);
  f.handle = pcd_init(0);
  if (f.handle == nullptr) {
    std::fprintf(stderr, "pcd_init: %s\n", pcd_last_error());
    std::exit(1);
  }
  f.cds.set_handle(f.handle);
  populate(f);
  sqlite3_open_v2((f.dir + "/cds.db").c_str(), &f.raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                  nullptr);
  sqlite3_exec(f.raw, "PRAGMA synchronous = NORMAL", nullptr, nullptr, nullptr);
  sqlite3_busy_timeout(f.raw, 5000);
  sqlite3_prepare_v3(f.raw,
                     "SELECT type, value, sec, usec, storage FROM leaves "
                     "WHERE node = ?1 AND name = ?2",
                     -1, SQLITE_PREPARE_PERSISTENT, &f.raw_lookup, nullptr);
  sqlite3_prepare_v3(f.raw,
                     "INSERT OR REPLACE INTO leaves(node, name, type, value, sec, usec, storage, "
                     "source) VALUES(?1, ?2, 2, ?3, 0, 0, 0, '')",
                     -1, SQLITE_PREPARE_PERSISTENT, &f.raw_insert, nullptr);
  sqlite3_prepare_v3(f.raw, "BEGIN", -1, SQLITE_PREPARE_PERSISTENT, &f.raw_begin, nullptr);
  sqlite3_prepare_v3(f.raw, "COMMIT", -1, SQLITE_PREPARE_PERSISTENT, &f.raw_commit, nullptr);
}

void runRaw(sqlite3_stmt* stmt) {
  sqlite3_step(stmt);
  sqlite3_reset(stmt);
}

void tearDown(Fixture& f) {
  sqlite3_finalize(f.raw_begin);
  sqlite3_finalize(f.raw_commit);
  sqlite3_finalize(f.raw_lookup);
  sqlite3_finalize(f.raw_insert);
  sqlite3_close(f.raw);
  pcd_close(f.handle);
  std::filesystem::remove_all(f.dir);
}

// One raw point lookup, reading every column the client reads.
void rawLookup(Fixture& f, size_t i) {
  const auto& key = f.keys[i];
  sqlite3_bind_text(f.raw_lookup, 1, key.first.data(), int(key.first.size()), SQLITE_STATIC);
  sqlite3_bind_text(f.raw_lookup, 2, key.second.data(), int(key.second.size()), SQLITE_STATIC);
  if (sqlite3_step(f.raw_lookup) == SQLITE_ROW) {
    benchmark::DoNotOptimize(sqlite3_column_int(f.raw_lookup, 0));
    benchmark::DoNotOptimize(sqlite3_column_double(f.raw_lookup, 1));
    benchmark::DoNotOptimize(sqlite3_column_int64(f.raw_lookup, 2));
    benchmark::DoNotOptimize(sqlite3_column_int64(f.raw_lookup, 3));
    benchmark::DoNotOptimize(sqlite3_column_int(f.raw_lookup, 4));
  }
  sqlite3_reset(f.raw_lookup);
}

void BM_GetLeaf(benchmark::State& state) {
  Fixture& f = *g_fixture;
  api_status_t st;
  toolkit::CElement v;
  element_property_t prop;
  size_t i = 0;
  for (auto _ : state) {
    f.cds.get_leaf(f.paths[i++ % f.paths.size()], st, v, prop);
    benchmark::DoNotOptimize(v);
  }
}

void BM_RawLookup(benchmark::State& state) {
  Fixture& f = *g_fixture;
  size_t i = 0;
  for (auto _ : state) rawLookup(f, i++ % f.keys.size());
}

void BM_GetLeaves(benchmark::State& state) {
  Fixture& f = *g_fixture;
  std::vector<std::string> paths(f.paths.begin(), f.paths.begin() + state.range(0));
  std::vector<api_status_t> statuses;
  std::vector<toolkit::CElement> values;
  std::vector<element_property_t> props;
  for (auto _ : state) {
    f.cds.get_leaves(paths, statuses, values, props);
    benchmark::DoNotOptimize(values.data());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The raw counterpart of get_leaves: the same lookups in one read transaction.
void BM_RawLookups(benchmark::State& state) {
  Fixture& f = *g_fixture;
  const size_t n = static_cast<size_t>(state.range(0));
  for (auto _ : state) {
    runRaw(f.raw_begin);
    for (size_t i = 0; i < n; ++i) rawLookup(f, i);
    runRaw(f.raw_commit);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_SetLeaf(benchmark::State& state) {
  Fixture& f = *g_fixture;
  api_status_t st;
  toolkit::CElement v;
  size_t i = 0;
  for (auto _ : state) {
    v.set_int(static_cast<int32_t>(i));
    f.cds.set_leaf(f.paths[i++ % f.paths.size()], v, st, false, "bench");
  }
}

void BM_RawInsert(benchmark::State& state) {
  Fixture& f = *g_fixture;
  size_t i = 0;
  for (auto _ : state) {
    const auto& key = f.keys[i % f.keys.size()];
    sqlite3_bind_text(f.raw_insert, 1, key.first.data(), int(key.first.size()), SQLITE_STATIC);
    sqlite3_bind_text(f.raw_insert, 2, "Value", 5, SQLITE_STATIC);
    sqlite3_bind_int64(f.raw_insert, 3, static_cast<int64_t>(i++));
    sqlite3_step(f.raw_insert);
    sqlite3_reset(f.raw_insert);
  }
}

BENCHMARK(BM_GetLeaf);
BENCHMARK(BM_RawLookup);
BENCHMARK(BM_GetLeaves)->Arg(1)->Arg(100)->Arg(1000);
BENCHMARK(BM_RawLookups)->Arg(1)->Arg(100)->Arg(1000);
BENCHMARK(BM_SetLeaf);
BENCHMARK(BM_RawInsert);

// Keeps each benchmark's real time per iteration (ns) so that the ratios can be printed at
// the end. Real time, not CPU time: a store call may wait for locks and the disk.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      // With repetitions the median stands for the benchmark.
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median") continue;
      // GetAdjustedRealTime() is in the run's unit; the multiplier is that unit per second.
      ns_[run.run_name.str()] =
          run.GetAdjustedRealTime() * 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
    }
  }

  void printRatios() const {
    std::printf("\nstore call / raw SQLite, per path:\n");
    ratio("get_leaf", "BM_GetLeaf", "BM_RawLookup", 1);
    for (int n : {1, 100, 1000}) {
      std::string suffix = "/" + std::to_string(n);
      ratio(("get_leaves" + suffix).c_str(), "BM_GetLeaves" + suffix, "BM_RawLookups" + suffix, n);
    }
    ratio("set_leaf", "BM_SetLeaf", "BM_RawInsert", 1);
  }

 private:
  void ratio(const char* label, const std::string& ours, const std::string& raw, int n) const {
    auto a = ns_.find(ours);
    auto b = ns_.find(raw);
    if (a == ns_.end() || b == ns_.end()) return;
    std::printf("  %-16s %8.0f ns vs %8.0f ns per path  = %.2fx   (call %.3f ms)\n", label,
                a->second / n, b->second / n, a->second / b->second, a->second / 1e6);
  }

  std::map<std::string, double> ns_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Fixture fixture;
  g_fixture = &fixture;
  setUp(fixture);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printRatios();
  tearDown(fixture);
  return 0;
}

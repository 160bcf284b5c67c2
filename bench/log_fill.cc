// log_fill: large logs for the log benchmarks, written through the platform's writers.
//
//   log_fill DIR RECORDS
//
// DIR/deadband.db: RECORDS delta records, one poll a second of a group of points (Real values,
// every record of a poll with the poll's time stamp), from 2023-01-01T00:00:00Z on.
// DIR/interval-trends.db: one device /Bench with 20 parameters and RECORDS / 20 snapshots of
// period 1, one a minute from the same start, so that it holds RECORDS samples.
// Prints the time range of each log, in platform time.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/log.h"
#include "platform/trend.h"

namespace {

constexpr long long kStartSeconds = 1672531200;  // 2023-01-01T00:00:00Z
constexpr int kPointsPerPoll = 5;
constexpr int kPoints = 100;
constexpr int kParams = 20;
constexpr size_t kBatch = 20000;

int fillDeltas(const std::string& path, long records) {
  pcd_log_handle_t handle = nullptr;
  if (pcd_log_init(path.c_str(), &handle, 1, 1, 5000, 1, 0, 0, 0, 0, 0) != 0) {
    std::fprintf(stderr, "log_fill: %s\n", pcd_log_last_error());
    return 1;
  }
  toolkit::CLog log(handle);
  std::vector<toolkit::CEvent> batch;
  int rc = 0;
  for (long i = 0; i < records && rc == 0; ++i) {
    toolkit::CEvent record;
    record.kind = toolkit::CEvent::kKindDelta;
    record.timestamp = {static_cast<time_t>(kStartSeconds + i / kPointsPerPoll), 0};
    record.source_path = "/Bench/P" + std::to_string(i % kPoints) + "/Value";
    record.value.set_real(static_cast<double>(i % 1000) / 10);
    record.value.set_time(record.timestamp);
    record.set_quality(toolkit::CEvent::kQualityGood);
    batch.push_back(record);
    if (batch.size() == kBatch || i + 1 == records) {
      rc = log.append(batch);
      batch.clear();
    }
  }
  pcd_log_close(handle);
  if (rc != 0) {
    std::fprintf(stderr, "log_fill: %s: %s\n", path.c_str(), pcd_log_result_text(rc));
    return 1;
  }
  std::printf("deltas %ld from %lld000 to %lld000\n", records, kStartSeconds,
              kStartSeconds + (records - 1) / kPointsPerPoll);
  return 0;
}

int fillTrends(const std::string& path, long samples) {
  toolkit::trend::CDeviceLog device{"/Bench", {}, {}};
  for (int p = 0; p < kParams; ++p) device.params.push_back({"/Bench/P" + std::to_string(p)});
  const long snapshots = samples / kParams;
  for (long s = 0; s < snapshots; ++s) {
    toolkit::trend::CSnapshot snapshot{1, static_cast<time_t>(kStartSeconds + s * 60), 100, {}};
    for (int p = 0; p < kParams; ++p) {
      const double v = static_cast<double>((s + p) % 1000) / 10;
      snapshot.data.push_back({v - 1, v + 1, v, v, 60});
    }
    device.snapshots.push_back(std::move(snapshot));
  }
  toolkit::trend::CLog log;
  int rc = log.open(path, false, true, 5000, true, 0, 0, 0, false);
  if (rc == 0) rc = log.replace({{1, static_cast<uint32_t>(snapshots)}}, {device});
  if (rc != 0) {
    std::fprintf(stderr, "log_fill: %s: %s %s\n", path.c_str(), pcd_log_result_text(rc),
                 log.last_error().c_str());
    return 1;
  }
  std::printf("trends %ld snapshots from %lld000 to %lld000\n", snapshots, kStartSeconds,
              kStartSeconds + (snapshots - 1) * 60);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: log_fill DIR RECORDS\n");
    return 2;
  }
  const std::string dir = argv[1];
  const long records = std::atol(argv[2]);
  if (records < kParams) {
    std::fprintf(stderr, "log_fill: RECORDS must be at least %d\n", kParams);
    return 2;
  }
  return fillDeltas(dir + "/deadband.db", records) ||
         fillTrends(dir + "/interval-trends.db", records);
}

// libFuzzer target: arbitrary bytes through the daemon's serve routine and dispatch, on a
// demo store, as anonymous, guest, operator or admin (request_harness.h has the input
// format). Sanitizer reports and the checks below are the findings; scripts/fuzz.sh runs it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "request_harness.h"

namespace {

// Writes accumulate in the store; putting it back now and then keeps the demo's nodes there
// for the inputs that read them, and keeps a finding close to a fresh store.
constexpr unsigned kRestoreInterval = 1000;

wsgate_fuzz::RequestHarness* g_harness = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  g_harness = new wsgate_fuzz::RequestHarness();
  // libFuzzer ends a timed run with exit(): the temporary store goes with it.
  atexit([] { delete g_harness; });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static unsigned served = 0;
  if (++served % kRestoreInterval == 0) g_harness->restoreStore();
  const std::string answer = g_harness->serve(data, size);
  // Every request gets a whole answer, whatever it holds.
  const std::string defect = wsgate_fuzz::answerDefect(answer);
  if (!defect.empty()) {
    fprintf(stderr, "incomplete answer (%s): %.300s\n", defect.c_str(), answer.c_str());
    abort();
  }
  return 0;
}

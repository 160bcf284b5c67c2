#include <gtest/gtest.h>

#include <set>

#include "fake_reboot.h"
#include "maintenance/node_maintenance.h"
#include "maintenance/reset.h"
#include "values_fixture.h"

namespace {

using wsgate_test::ValuesTest;
using Texts = std::vector<std::string>;

class MaintenanceTest : public ValuesTest {
 protected:
  void SetUp() override {
    ValuesTest::SetUp();
    cds.rights_set({"admin", "/", "rwd"});
    actAs("admin");
  }

  bool exists(const std::string& node) {
    api_status_t status;
    return cds.test_node(node, status) == 0 && status == API_STATUS_OK;
  }
};

// Failing any one store call of a CreateNode answers one of its texts, and the store holds
// the leaves exactly when the answer is the written value. A rights look-up that fails is a
// refusal; when it is the write core's, the node has been made already and stays, empty.
TEST_F(MaintenanceTest, CreateNodeWithAFailingStoreCallLeavesAWholeStore) {
  const std::string base = "/New/";
  std::set<std::string> answers;
  for (int skip = 0; skip < 40; ++skip) {
    api_status_t status;
    cds.remove_node("/New", status, false, "test");
    std::string result;
    const int service_status = wsgate_test::withFailure(cds.handle(), skip, [&] {
      return createNode(cds, &base, {"ValueType", "Writable", "Value"}, {"Real", "true", "1.5"},
                        defaults, result);
    });
    if (service_status == kMaintenanceUnauthorized) result = "401";
    EXPECT_TRUE(service_status == 0 || result == "401");
    EXPECT_EQ(storedText("/New/Value"), result == "1.5" ? "1.5" : "") << skip;
    answers.insert(result);
  }
  EXPECT_EQ(answers, (std::set<std::string>{"1.5", "401", "? 16 Write Failed",
                                            "? 16 Write Failed : CDS write access failed"}));
  wsgate_test::expectWholeStore(store.path());
}

TEST_F(MaintenanceTest, RemoveNodeWithAFailingStoreCallRemovesAllOrNothing) {
  const std::string node = "/Tree", attribute = "/Temp:Minimum";
  std::set<std::string> answers;
  for (int skip = 0; skip < 12; ++skip) {
    for (const char* child : {"/Tree/a/x", "/Tree/b"}) this->node(child);
    leaf("/Temp/Minimum", toolkit::CElement("0"));
    for (const std::string* path : {&node, &attribute}) {
      std::string result;
      const int status = wsgate_test::withFailure(
          cds.handle(), skip, [&] { return removeNode(cds, path, defaults, result); });
      if (status == kMaintenanceUnauthorized) result = "401";
      answers.insert(result);
      const bool kept = path == &node ? exists("/Tree/a/x") : storedText("/Temp/Minimum") == "0";
      EXPECT_EQ(kept, !result.empty()) << *path << " " << skip;
      if (path == &node) {
        EXPECT_TRUE(exists("/Tree") == kept && exists("/Tree/b") == kept) << skip;
      }
    }
  }
  EXPECT_EQ(answers,
            (std::set<std::string>{"", "401", "? 9 Node Not Found : CDS Error removing node"}));
  wsgate_test::expectWholeStore(store.path());
}

// The request's identity may be missing, and the log line may fail: a reset that was asked
// for goes ahead all the same. (The binary links the fake reboot program.)
TEST_F(MaintenanceTest, ResetGoesAheadWithoutACallerOrItsLogLine) {
  cds.rights_set({"*", "/", "rx"});
  actAs(nullptr, nullptr);
  std::set<std::string> outcomes;
  for (int skip = 0; skip < 3; ++skip) {
    std::vector<toolkit::CCds::syslog_record_t> before, after;
    cds.syslog_list(before, 1000);
    volatile std::sig_atomic_t flag = 0;
    const int requests = g_reboot_requests;
    std::string result;
    const int status = wsgate_test::withFailure(cds.handle(), skip,
                                                [&] { return resetGateway(cds, &flag, result); });
    cds.syslog_list(after, 1000);
    // The flag, the reboot program's runs and the log lines added.
    const std::string effects = std::to_string(flag) + " " +
                                std::to_string(g_reboot_requests - requests) + " " +
                                std::to_string(after.size() - before.size());
    if (status == kMaintenanceUnauthorized) {  // the rights could not be read
      EXPECT_EQ(effects, "0 0 0");
      outcomes.insert("refused");
      continue;
    }
    EXPECT_EQ(result, "? System Reboot Failed: No such file or directory");
    EXPECT_EQ(effects.substr(0, 4), "1 1 ");
    outcomes.insert(after.size() == before.size() ? "not logged" : "logged");
    if (after.size() == before.size()) continue;
    EXPECT_EQ(after.back().text, "Network Card Reset requested via web services by  at ");
    EXPECT_EQ(after.back().severity, SYSLOG_CRITICAL);
    EXPECT_EQ(after.back().app + after.back().detail, "");
  }
  EXPECT_EQ(outcomes, (std::set<std::string>{"refused", "not logged", "logged"}));
}

}  // namespace

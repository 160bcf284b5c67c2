// Subscriptions on the values fixture's store, acting as "writer" from 10.0.0.7 (who may read
// everything but /Secret). The root is a device of quality 192.
#include "subscriptions/subscriptions.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "platform/vtx.h"
#include "soap_fixture.h"
#include "tools/demo.h"
#include "values_fixture.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using wsgate_test::typed;
using Dump = std::map<std::string, std::string>;
using Lines = std::vector<std::string>;

constexpr vtx_time64_t kNow = 1800000000000;
const std::string kSub = std::string(kSubscriptionsPath) + "/s1";
const std::string kCounter = std::string(kPublisherPath) + "/SubUpdateCount/Value";
const Lines kNone = {"none"};

RealTimeNode rt(const std::string& path, int freshness = 500, double deadband = 2.5) {
  return {path, freshness, deadband};
}

// Each result on one line: value, numeric form ("-" when absent), quality and time.
Lines describe(const RealTimeNodeResults& results) {
  if (!results) return kNone;
  Lines lines;
  for (const RealTimeNodeResult& r : *results) {
    lines.push_back(r.value + " | " + r.numeric.value_or("-") + " | " + std::to_string(r.quality) +
                    " | " + std::to_string(r.time));
  }
  return lines;
}

class SubscriptionsTest : public wsgate_test::ValuesTest {
 protected:
  void SetUp() override {
    ValuesTest::SetUp();
    leaf("/.Quality", typed("Unsigned", "192"));
    node(std::string(kPublisherPath) + "/SubUpdateCount");
    leaf(kCounter, typed("Integer", "0"));
    node(kSubscriptionsPath);
    actAs("writer");
    vtx_SetTestClock(kNow, 1);
  }
  void TearDown() override {
    vtx_ClearTestClock();
    ValuesTest::TearDown();
  }

  SubscriptionRequest request(std::vector<RealTimeNode> nodes, const std::string& id = "s1") {
    return {id, "http://10.0.0.9/callback", 60000, 1700000000123, 4 | 1, std::move(nodes)};
  }
  int create(const SubscriptionRequest& r) {
    CaptureStderr();
    const int status = createSubscription(cds, r, results_);
    GetCapturedStderr();
    return status;
  }
  int update(const std::string& id, std::optional<std::vector<RealTimeNode>> add,
             const Lines& remove) {
    CaptureStderr();
    const int status = updateSubscriptionRealTimeNodes(cds, id, add, remove, results_);
    stderr_ = GetCapturedStderr();
    return status;
  }

  // Every leaf below `root`, by path relative to it: "value (type)".
  Dump dump(const std::string& root = kPublisherPath) {
    Dump out;
    Lines nodes;
    api_status_t status;
    cds.list_subtree(root, nodes, status);
    for (const std::string& n : nodes) {
      std::vector<toolkit::leaf_record_t> leaves;
      cds.list_leaves(n, leaves, status);
      for (const auto& l : leaves) {
        out[n.substr(root.size()) + "/" + l.name] =
            l.value.to_string() + " (" + pcd_enum_to_str(l.value.get_type()) + ")";
      }
    }
    return out;
  }
  std::string children(const std::string& path) { return storedText(path + "/Children"); }
  // The entries of s1, their count and the publisher's counter.
  std::string state() {
    return children(kSub + "/RTNodes") + " " + storedText(kSub + "/RTNodeCount/Value") + " " +
           storedText(kCounter);
  }

  RealTimeNodeResults results_;
  std::string stderr_;
};

// The demo's subscription (tools/demo_data.cc) is written from the record's description;
// createSubscription must write exactly that record for the same values.
TEST_F(SubscriptionsTest, CreateWritesTheDemosRecord) {
  cdstool::Document doc;
  cdstool::buildDemo(doc);
  cdstool::importDocument(cds, doc, "demo");
  const std::string root = std::string(kSubscriptionsPath) + "/sub-1";
  const Dump demo = dump(root);
  ASSERT_EQ(demo.size(), 41u);
  ASSERT_EQ(create({"sub-1", "http://192.0.2.10:8081/notify", 600000, 1700000000000, 5,
                    std::vector{rt("/Meter1/Voltage", 1000, 0.5), rt("/AHU1/Fan", 5000, 0)}}),
            0);
  EXPECT_EQ(dump(root), demo);
  EXPECT_EQ(storedText(kCounter), "1");
  EXPECT_EQ(storedText(std::string(kPublisherPath) + "/AppStatus"), "1");
  // Every write names the caller; the publisher's log names the caller's address.
  for (const std::string& path :
       {root + "/ReplyURI/Value", root + "/RTNodes/AHU1.Fan/Deadband/Units", kCounter}) {
    api_status_t status;
    std::string source;
    cds.get_leaf_source(path, status, source);
    EXPECT_EQ(source, "Web-Services:writer@10.0.0.7") << path;
  }
  std::vector<toolkit::CCds::syslog_record_t> log;
  ASSERT_EQ(cds.syslog_list(log, 1), 0);
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0].app + ": " + log[0].text,
            "WS-Publisher: New subscription from remote address of 10.0.0.7");
}

TEST_F(SubscriptionsTest, EachAcceptedNodeAnswersItsCurrentValue) {
  const std::string now = std::to_string(kNow);
  actAs("guest");  // who may not read /Secret
  ASSERT_EQ(create(request({rt("/Temp"), rt("/Fan"), rt("/Mode/Value"), rt("/Temp.Time"), rt("/"),
                            rt(""), rt("/Nothing"), rt("Temp"), rt("/Secret")})),
            0);
  EXPECT_EQ(describe(results_),
            (Lines{"21.5 | - | 192 | 1700000000250", "Off | 0 | 192 | 1700000000250",
                   "Auto | 1 | 192 | 1700000000250", "1700000000250 | - | 192 | 1700000000250",
                   // "/" and "" give no node name: no entry, no result.
                   "? 9 Node Not Found : CDS access failed | - | 0 | " + now,
                   "? 8 Bad Path Syntax : CDS Error in supplied path | - | 0 | " + now,
                   "? 2 Not Authorized : Unauthorized read | - | 0 | " + now}));
  // The entries are made whatever the value read says.
  EXPECT_EQ(state(), "Fan;Mode.Value;Nothing;Secret;Temp;Temp\\.Time 7 1");
  // A known id is replaced whole.
  ASSERT_EQ(create(request({rt("/Mode")})), 0);
  EXPECT_EQ(state(), "Mode 1 2");
}

TEST_F(SubscriptionsTest, CreateWithoutNodesOrWithoutAUsableId) {
  // No list of nodes, or an empty one: no result list, the count stays at its default.
  ASSERT_EQ(create(request({})), 0);
  EXPECT_EQ(describe(results_), kNone);
  EXPECT_EQ(storedText(kSub + "/RTNodeCount/Value"), "0");
  // An empty id writes nothing and answers success; one that names no single node is refused.
  const Dump before = dump();
  EXPECT_EQ(create(request({rt("/Temp")}, "")), 0);
  EXPECT_EQ(describe(results_), kNone);
  for (const char* id : {"/", "a/b", "../s1/RTNodes"}) {
    EXPECT_EQ(create(request({rt("/Temp")}, id)), 1) << id;
  }
  EXPECT_EQ(dump(), before);

  // Record paths are cut at 255 bytes; no room is left for a real-time node's name.
  const std::string id(300, 'x');
  ASSERT_EQ(create(request({rt("/Temp")}, id)), 0);
  std::string path;
  ASSERT_TRUE(subscriptionPath(id, path));
  EXPECT_EQ(path.size(), 255u);
  EXPECT_EQ(storedText(path + "/ReplyURI/Value"), "http://10.0.0.9/callback");
  EXPECT_EQ(describe(results_), Lines{});
  EXPECT_EQ(cancelSubscription(cds, id), 0);  // the same cut finds it again
}

TEST_F(SubscriptionsTest, UpdateAndCancel) {
  ASSERT_EQ(create(request({rt("/Temp"), rt("/Fan")})), 0);
  ASSERT_EQ(update("s1", std::vector<RealTimeNode>{rt("/Fan", 100, 7), rt("/Mode")},
                   {"/Temp", "/Never/Added", "/", ""}),
            0);
  EXPECT_EQ(describe(results_),
            (Lines{"Off | 0 | 192 | 1700000000250", "Auto | 1 | 192 | 1700000000250"}));
  EXPECT_EQ(state(), "Fan;Mode 2 1");  // an update is not announced
  EXPECT_EQ(storedText(kSub + "/RTNodes/Fan/RqstdFreshness/Value"), "100");
  EXPECT_EQ(storedText(kSub + "/RTNodes/Fan/Deadband/Value"), "7");
  // Only removals: no result list, the count follows.
  ASSERT_EQ(update("s1", std::nullopt, {"/Fan"}), 0);
  EXPECT_EQ(describe(results_), kNone);
  EXPECT_EQ(state(), "Mode 1 1");

  EXPECT_EQ(cancelSubscription(cds, "s1"), 0);
  EXPECT_EQ(children(kSubscriptionsPath), "");
  EXPECT_EQ(storedText(kCounter), "2");
  for (const char* id : {"s1", "", "/"}) EXPECT_EQ(cancelSubscription(cds, id), 1) << id;
  EXPECT_EQ(storedText(kCounter), "2");
}

TEST_F(SubscriptionsTest, UpdateOfAnUnknownOrMissingSubscription) {
  ASSERT_EQ(create(request({})), 0);
  api_status_t status;
  cds.remove_node(kSub + "/RTNodes", status, false, "test");
  for (const char* id : {"s1", "nobody", "a/b"}) {
    ASSERT_EQ(update(id, std::vector<RealTimeNode>{rt("/Temp")}, {}), 0) << id;
    EXPECT_EQ(describe(results_),
              Lines{"? 28 No match for SubscriberId : updateSubscriptionRealTimeNodes() failed | - "
                    "| 0 | 0"});
  }
  EXPECT_EQ(update("", std::vector<RealTimeNode>{rt("/Temp")}, {}), 1);
  EXPECT_EQ(stderr_, "updateSubscriptionRealTimeNodes: NULL Subscription ID provided\n");
}

// Every store call of a create that replaces an existing record, failing in turn: the
// answer is a fault with the store as it was, or a success whose record is whole, each value
// the request's or the template's default.
TEST_F(SubscriptionsTest, ACreateFailingAtAnyStoreCallLeavesAWholeRecordOrNone) {
  // leaf -> the request's value, the template's default
  const std::map<std::string, Lines> allowed = {
      {"/ReplyURI/Value", {"http://10.0.0.9/callback (String)", "replyUri (String)"}},
      {"/LeaseDuration/Value", {"60000 (Integer)", "20 (Integer)"}},
      {"/LogSinceTime/Value", {"1700000000123 (timeval)", "1234 (timeval)"}},
      {"/LogOptions/Value", {"5 (Integer)", "8 (Integer)"}},
  };
  const std::string record = "/Subscriptions/s1";
  bool saw_fault = false, saw_default = false, saw_skipped_node = false;
  for (int skip = 0; skip < 120; ++skip) {
    ASSERT_EQ(create(request({rt("/Fan")})), 0);
    const Dump before = dump();
    const int status = wsgate_test::withFailure(cds.handle(), skip, [&] {
      return create(request({rt("/Temp"), rt("/Mode")}));
    });
    const Dump after = dump();
    if (status != 0) {
      saw_fault = true;
      EXPECT_EQ(after, before) << skip;
      continue;
    }
    ASSERT_EQ(after.count(record + "/RTNodes/NodeType"), 1u) << skip;
    for (const auto& [leaf, values] : allowed) {
      const std::string& value = after.at(record + leaf);
      EXPECT_TRUE(value == values[0] || value == values[1]) << skip << " " << leaf << " " << value;
      saw_default = saw_default || value == values[1];
    }
    EXPECT_EQ(after.count(record + "/RTNodes/Fan/NodeType"), 0u) << skip;
    const size_t answered = results_ ? results_->size() : 0;
    const std::string count = after.at(record + "/RTNodeCount/Value");
    EXPECT_TRUE(count == std::to_string(answered) + " (Integer)" || count == "0 (Integer)") << skip;
    // Without the counter's bump the nodes are not written.
    const bool bumped = after.at("/SubUpdateCount/Value") != before.at("/SubUpdateCount/Value");
    if (!bumped) {
      EXPECT_EQ(describe(results_), kNone) << skip;
    }
    saw_skipped_node = saw_skipped_node || (bumped && answered < 2);
  }
  EXPECT_TRUE(saw_fault && saw_default && saw_skipped_node);
}

TEST_F(SubscriptionsTest, AnUpdateFailingAtAnyStoreCallKeepsItsCountTrueOrChangesNothing) {
  ASSERT_EQ(create(request({rt("/Temp"), rt("/Fan")})), 0);
  const std::string count_leaf = "/Subscriptions/s1/RTNodeCount/Value";
  bool saw_fault = false;
  for (int skip = 0; skip < 80; ++skip) {
    const Dump before = dump();
    const int status = wsgate_test::withFailure(cds.handle(), skip, [&] {
      return update("s1", std::vector<RealTimeNode>{rt("/Mode")}, {"/Fan"});
    });
    const Dump after = dump();
    if (status != 0) {
      saw_fault = true;
      EXPECT_EQ(after, before) << skip;
    } else if (!(results_ && results_->size() == 1 && results_->front().value[0] == '?')) {
      // The count is the number of entries, or when they could not be counted what it was
      // (a result of error 28 means the subscription was not found).
      size_t entries = 0;
      for (const char* name : {"Temp", "Fan", "Mode"}) {
        entries += after.count(std::string("/Subscriptions/s1/RTNodes/") + name + "/NodeType");
      }
      const std::string count = after.at(count_leaf);
      EXPECT_TRUE(count == std::to_string(entries) + " (Integer)" || count == before.at(count_leaf))
          << skip << " " << count << " for " << entries;
    }
    // Put the two entries back for the next round.
    ASSERT_EQ(update("s1", std::vector<RealTimeNode>{rt("/Fan")}, {"/Mode"}), 0);
  }
  EXPECT_TRUE(saw_fault);
  EXPECT_EQ(state(), "Fan;Temp 2 1");
}

// The SOAP glue: absent elements read as empty ones, and lists beyond the limit are refused
// before anything is written.
TEST_F(SubscriptionsTest, Operations) {
  ServiceContext context;
  context.cds.set_handle(cds.handle());
  wsgate_test::SoapContext soap(&context);
  _nsc1__createSubscription create_request;
  _nsc1__createSubscriptionResponse create_response;
  create_request.realTimeNodes = soap_new_nsc1__ArrayOfNodeSubscription(soap.get());
  create_request.realTimeNodes->NodeSubscription.resize(kMaxRealTimeNodes + 1);
  std::string id = "s1";
  create_request.subscriptionId = &id;
  EXPECT_EQ(__nsc1__createSubscription(soap.get(), &create_request, create_response), SOAP_OCCURS);
  EXPECT_EQ(children(kSubscriptionsPath), "");

  // Items without a path are skipped; no reply address is an empty one.
  create_request.realTimeNodes->NodeSubscription.resize(2);
  std::string path = "/Temp";
  create_request.realTimeNodes->NodeSubscription[1].Path = &path;
  CaptureStderr();
  ASSERT_EQ(__nsc1__createSubscription(soap.get(), &create_request, create_response), SOAP_OK);
  GetCapturedStderr();
  ASSERT_NE(create_response.createSubscriptionResult, nullptr);
  const auto& results = create_response.createSubscriptionResult->RealTimeNodeSubscriptionResult;
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(*results[0].Value, "21.5");
  EXPECT_EQ(results[0].NumericValue, nullptr);
  EXPECT_EQ(storedText(kSub + "/ReplyURI/Value"), "");

  _nsc1__updateSubscriptionRealTimeNodes update_request;
  _nsc1__updateSubscriptionRealTimeNodesResponse update_response;
  update_request.subscriptionId = &id;
  update_request.realTimeNodesToRemove = soap_new_nsc1__ArrayOfString(soap.get());
  update_request.realTimeNodesToRemove->string.assign(kMaxRealTimeNodes + 1, "/Temp");
  EXPECT_EQ(__nsc1__updateSubscriptionRealTimeNodes(soap.get(), &update_request, update_response),
            SOAP_OCCURS);
  EXPECT_EQ(children(kSub + "/RTNodes"), "Temp");
  update_request.realTimeNodesToRemove = nullptr;
  ASSERT_EQ(__nsc1__updateSubscriptionRealTimeNodes(soap.get(), &update_request, update_response),
            SOAP_OK);
  EXPECT_EQ(update_response.updateSubscriptionRealTimeNodesResult, nullptr);

  _nsc1__cancelSubscription cancel_request;
  _nsc1__cancelSubscriptionResponse cancel_response;
  EXPECT_EQ(__nsc1__cancelSubscription(soap.get(), &cancel_request, cancel_response), 1);
  cancel_request.subscriptionId = &id;
  EXPECT_EQ(__nsc1__cancelSubscription(soap.get(), &cancel_request, cancel_response), SOAP_OK);
}

}  // namespace

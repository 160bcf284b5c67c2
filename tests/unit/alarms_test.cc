// Alarm acknowledgement and the active alarm table, on a store holding the demo gateway (its
// four alarms: 1001 at T, 1002 and 4294967297 at T + 1 min, 1003 at T + 2 min).
#include "subscriptions/alarms.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/vtx.h"
#include "soap_fixture.h"
#include "store_fixture.h"
#include "tools/demo.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using Lines = std::vector<std::string>;

constexpr int64_t kT = 1700000000000;
constexpr int64_t kMinute = 60000;

TEST(AlarmRangeTest, RangesAndTrims) {
  const std::vector<int64_t> times = {1, 2, 2, 2, 3, 4};
  const struct {
    int max;
    bool latest, reverse, trim;
    size_t begin, end;
    int trimmed;
  } cases[] = {
      {0, false, false, true, 0, 6, 0},   // no limit: all, nothing trimmed
      {6, true, false, true, 0, 6, 0},    // the limit is not reached
      {3, false, false, false, 0, 3, 0},  // the first three
      {3, true, true, false, 0, 3, 0},    // latest and reverse: the first three too
      {3, true, false, false, 3, 6, 0},   // the last three
      {3, false, true, false, 3, 6, 0},
      // The three alarms at time 2 straddle the cut: none of them is kept, and the count is
      // that of the group now nearest the cut.
      {3, false, false, true, 0, 1, 1},
      {2, true, false, true, 4, 6, 0},  // the cut falls between groups: nothing trimmed
      {4, true, false, true, 4, 6, 1},
      {5, true, false, true, 1, 6, 0},
  };
  for (const auto& c : cases) {
    const AlarmRange r = selectAlarmRange(times, c.max, c.latest, c.reverse, c.trim);
    EXPECT_EQ(r.begin, c.begin) << c.max << c.latest << c.reverse << c.trim;
    EXPECT_EQ(r.end, c.end) << c.max << c.latest << c.reverse << c.trim;
    EXPECT_EQ(r.trimmed, c.trimmed) << c.max << c.latest << c.reverse << c.trim;
  }
  // When the whole range is one group nothing is kept, and that group is counted.
  const std::vector<int64_t> one_time = {7, 7, 7};
  const AlarmRange start_cut = selectAlarmRange(one_time, 2, true, false, true);
  EXPECT_EQ(start_cut.end - start_cut.begin, 0u);
  EXPECT_EQ(start_cut.trimmed, 3);
  const AlarmRange end_cut = selectAlarmRange(one_time, 2, false, false, true);
  EXPECT_EQ(end_cut.end - end_cut.begin, 0u);
  EXPECT_EQ(end_cut.trimmed, 3);
}

class AlarmsTest : public wsgate_test::StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    cdstool::Document doc;
    cdstool::buildDemo(doc);
    cdstool::importDocument(cds, doc, "demo");
    context_.cds.set_handle(cds.handle());
  }

  nsqv__getActiveAlarmsResponse response(int max = 0, bool latest = false, bool reverse = false,
                                         bool trim = false, const char* path = nullptr,
                                         int64_t start = 0, int64_t end = 0,
                                         const char* options = nullptr) {
    nsqv__logRetrieveRequest request;
    std::string path_text = path != nullptr ? path : "";
    std::string options_text = options != nullptr ? options : "";
    request.path = path != nullptr ? &path_text : nullptr;
    request.options = options != nullptr ? &options_text : nullptr;
    request.nMaxToReturn = max;
    request.bLatestEvents = latest;
    request.bReverseOrder = reverse;
    request.bTrimIncomplete = trim;
    request.startTime = start;
    request.endTime = end;
    nsqv__getActiveAlarmsResponse answer;
    EXPECT_EQ(nsqv__getActiveAlarms(soap_.get(), &request, answer), SOAP_OK);
    return answer;
  }
  // The same as lines: the result text and the count of trimmed alarms, then each alarm's
  // event id and time.
  template <typename... Args>
  Lines active(Args... args) {
    const nsqv__getActiveAlarmsResponse answer = response(args...);
    Lines lines = {answer.result + " trimmed " + std::to_string(answer.numTrimmedEvents)};
    if (answer.alarms == nullptr) return lines;
    for (const nss1__AlarmUpdate& a : answer.alarms->AlarmUpdate) {
      lines.push_back(std::to_string(a.EventId) + " " + std::to_string(a.Time - kT));
    }
    return lines;
  }

  ServiceContext context_;
  wsgate_test::SoapContext soap_{&context_};
};

std::string text(const std::string* s) {
  return s == nullptr ? "-" : *s;
}

TEST_F(AlarmsTest, EachAlarmNodeBecomesAnAlarmUpdate) {
  const char* const kAck[] = {"NotAcked", "Acked", "Closed"};
  auto describe = [&](const char* id) {
    const nss1__AlarmUpdate* a =
        buildActiveAlarm(soap_.get(), cds, std::string("/Alarms/") + id, nullptr);
    if (a == nullptr) return std::string("none");
    return std::to_string(a->EventId) + " seq " + std::to_string(a->SequenceIndex) + " " +
           std::to_string(a->Time - kT) + " " + text(a->SourcePath) + " = " + text(a->Value) +
           " (" + text(a->NumericValue) + ") '" + text(a->Description) + "' q " + text(a->Quality) +
           " prio " + text(a->BasePriority) + " " + kAck[a->AckStatus] + " var " +
           std::to_string(a->VariationLevel) + (a->AutoClosing ? " auto" : "") +
           (a->ConditionPresent ? " raised" : "") + " note '" + text(a->Note) + "'";
  };
  EXPECT_EQ(describe("1001"),
            "1001 seq 1 0 /Meter1/Voltage = 254.2 (-) 'Voltage above critical limit' q 192 "
            "prio 100 NotAcked var 2 raised note ''");
  EXPECT_EQ(describe("1002"),
            "1002 seq 2 60000 /AHU1/SupplyTemp = 26.8 (-) 'Supply temperature high' q 192 "
            "prio 500 Acked var 1 auto raised note 'Checked by operator'");
  // No .BasePriority: 5000. A boolean and a multistate source read as their state texts.
  EXPECT_EQ(describe("1003"),
            "1003 seq 3 120000 /Meter10/Online = false (0) 'Communication lost' q 192 "
            "prio 5000 Closed var 1 auto note 'Cable replaced'");
  EXPECT_EQ(describe("4294967297"),
            "4294967297 seq 4 60000 /Meter1/Status = Fault (8) 'Meter fault' q 192 prio 200 "
            "NotAcked var 1 raised note ''");
  // An .AutoClosing that is not a boolean counts as false.
  api_status_t status;
  cds.set_leaf("/Alarms/1002/.AutoClosing", toolkit::CElement("true"), status, false, "test");
  EXPECT_EQ(describe("1002").find(" auto "), std::string::npos);
  pcd_inject_failure(cds.handle(), 0, 1);
  EXPECT_EQ(describe("1001"), "none");  // the seven leaves cannot be read
}

TEST_F(AlarmsTest, TheTableInOrderFilteredAndCut) {
  const std::string ok = " trimmed 0";
  // Time, then event id; 1002 and 4294967297 share a time.
  EXPECT_EQ(active(), (Lines{ok, "1001 0", "1002 60000", "4294967297 60000", "1003 120000"}));
  EXPECT_EQ(active(0, false, true),
            (Lines{ok, "1003 120000", "4294967297 60000", "1002 60000", "1001 0"}));
  // The path is a regular expression searched in the source path.
  // A text search, not a path prefix: /Meter10 matches "/Meter1" too.
  EXPECT_EQ(active(0, false, false, false, "/Meter1"),
            (Lines{ok, "1001 0", "4294967297 60000", "1003 120000"}));
  EXPECT_EQ(active(0, false, false, false, "Online$"), (Lines{ok, "1003 120000"}));
  EXPECT_EQ(active(0, false, false, false, "("), (Lines{ok}));
  EXPECT_EQ(active(0, false, false, false, "").size(), 5u);
  // Bounds count only above 0.
  EXPECT_EQ(active(0, false, false, false, nullptr, kT + 1, kT + 2 * kMinute - 1),
            (Lines{ok, "1002 60000", "4294967297 60000"}));
  EXPECT_EQ(active(0, false, false, false, nullptr, -5, kT + 1), (Lines{ok, "1001 0"}));
  // The latest two; trimmed, the pair at one time straddles no cut here but does at three.
  EXPECT_EQ(active(2, true), (Lines{ok, "4294967297 60000", "1003 120000"}));
  EXPECT_EQ(active(2, true, false, true), (Lines{" trimmed 1", "1003 120000"}));
  EXPECT_EQ(active(2, false, false, true), (Lines{" trimmed 1", "1001 0"}));
}

TEST_F(AlarmsTest, WhatTheTableHoldsBesidesAlarms) {
  api_status_t status;
  // A second node for the event id and time of 1001, listed before it: the first listed
  // stays. "AlarmCount" and anything below it is never an alarm.
  for (const char* name : {"/SourcePath/Value", "/AlarmMsg/Value", "/SequenceID/Value"}) {
    toolkit::CElement value;
    element_property_t prop;
    cds.get_leaf(std::string("/Alarms/1001") + name, status, value, prop);
    if (std::string(name) == "/AlarmMsg/Value") value.set_string("The copy");
    ASSERT_EQ(cds.add_node(std::string("/Alarms/0001001") + name, status, "test"), 0);
    cds.set_leaf(std::string("/Alarms/0001001") + name, value, status, false, "test");
  }
  ASSERT_EQ(cds.add_node("/Alarms/AlarmCount/SourcePath", status, "test"), 0);
  const nsqv__getActiveAlarmsResponse all = response();
  ASSERT_NE(all.alarms, nullptr);
  ASSERT_EQ(all.alarms->AlarmUpdate.size(), 4u);
  EXPECT_EQ(all.alarms->AlarmUpdate[0].EventId, 1001u);
  EXPECT_EQ(*all.alarms->AlarmUpdate[0].Description, "The copy");

  // Without a table: an error text under the request's options, and no list.
  ASSERT_EQ(cds.remove_node("/Alarms", status, false, "test"), 0);
  EXPECT_EQ(active(), (Lines{"? 22 No Data Available : No Alarm table trimmed 0"}));
  EXPECT_EQ(active(0, false, false, false, nullptr, 0, 0, "errorPrefix=E:"),
            (Lines{"E:? 22 No Data Available : No Alarm table trimmed 0"}));
}

// Every store call of the table's read failing in turn: an answer each time, never an
// alarm out of order.
TEST_F(AlarmsTest, AReadFailingAtAnyStoreCall) {
  const Lines all = active();
  for (int skip = 0; skip < 40; ++skip) {
    pcd_inject_failure(cds.handle(), skip, 1);
    const Lines answer = active();
    pcd_inject_failure(cds.handle(), 0, 0);
    size_t next = 1;
    for (size_t i = 1; i < answer.size(); ++i) {
      while (next < all.size() && all[next] != answer[i]) ++next;
      EXPECT_LT(next, all.size()) << skip << " " << answer[i];
    }
  }
}

TEST_F(AlarmsTest, AcknowledgementsGoToTheEventQueue) {
  wsgate_test::ScopedEnv user("REMOTE_USER", "operator");
  wsgate_test::ScopedEnv address("REMOTE_ADDR", "10.0.0.7");
  vtx_SetTestClock(kT + 5 * kMinute, 1);
  AlarmAck first{1001, std::string("seen"), 2, 1};
  AlarmAck second{4294967297, std::nullopt, 1, 2};
  CaptureStderr();
  // The queue refuses the first: its result says so, and the second is still sent.
  pcd_inject_failure(cds.handle(), 0, 1);
  EXPECT_EQ(acknowledgeAlarms(cds, {first, second}),
            (Lines{"? 20 Write Failed : CDS event_send failed", ""}));
  EXPECT_EQ(acknowledgeAlarms(cds, {first}), Lines{""});
  EXPECT_EQ(GetCapturedStderr(),
            "Ack'ing Alarm #1001 (AckStatus=1, varLevel=2). \n"
            "               Note = seen \n"
            "Ack'ing Alarm #4294967297 (AckStatus=2, varLevel=1). \n"
            "Ack'ing Alarm #1001 (AckStatus=1, varLevel=2). \n"
            "               Note = seen \n");
  vtx_ClearTestClock();
  std::vector<toolkit::CEvent> events;
  ASSERT_EQ(cds.events_list(events, 10), 0);
  ASSERT_EQ(events.size(), 2u);
  for (const toolkit::CEvent& e : events) {
    EXPECT_EQ(e.kind, 16);
    EXPECT_EQ(e.category, 10);
    EXPECT_EQ(e.source, "Web-Services:operator@10.0.0.7");
    EXPECT_EQ(vtx_UNIXtoVTXtime64(&e.timestamp), kT + 5 * kMinute);
    EXPECT_EQ(e.source_path, "");
  }
  EXPECT_EQ(events[0].event_id, 4294967297u);
  EXPECT_EQ(events[0].ack_status, 2);
  EXPECT_EQ(events[0].variation_level, 1);
  EXPECT_EQ(events[0].note, "");
  EXPECT_EQ(events[1].event_id, 1001u);
  EXPECT_EQ(events[1].ack_status, 1);
  EXPECT_EQ(events[1].variation_level, 2);
  EXPECT_EQ(events[1].note, "seen");
}

TEST_F(AlarmsTest, AcknowledgeAlarmStatuses) {
  _nsc1__acknowledgeAlarm request;
  _nsc1__acknowledgeAlarmResponse response;
  EXPECT_EQ(__nsc1__acknowledgeAlarm(soap_.get(), &request, response), -1);
  request.requests = soap_new_nsc1__ArrayOfAckRequest(soap_.get());
  EXPECT_EQ(__nsc1__acknowledgeAlarm(soap_.get(), &request, response), -1);
  request.requests->AckRequest.resize(kMaxAckRequests + 1);
  EXPECT_EQ(__nsc1__acknowledgeAlarm(soap_.get(), &request, response), SOAP_OCCURS);
  request.requests->AckRequest.resize(2);
  CaptureStderr();
  ASSERT_EQ(__nsc1__acknowledgeAlarm(soap_.get(), &request, response), SOAP_OK);
  GetCapturedStderr();
  ASSERT_NE(response.acknowledgeAlarmResult, nullptr);
  EXPECT_EQ(response.acknowledgeAlarmResult->string, (Lines{"", ""}));
  // An absent request asks for the whole table.
  nsqv__getActiveAlarmsResponse alarms;
  ASSERT_EQ(nsqv__getActiveAlarms(soap_.get(), nullptr, alarms), SOAP_OK);
  ASSERT_NE(alarms.alarms, nullptr);
  EXPECT_EQ(alarms.alarms->AlarmUpdate.size(), 4u);
}

}  // namespace

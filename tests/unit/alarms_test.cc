// Alarm acknowledgement and the active alarm table, on a store holding the demo gateway (its
// four alarms: 1001 at T, 1002 and 4294967297 at T + 1 min, 1003 at T + 2 min).
#include "subscriptions/alarms.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/vtx.h"
#include "soap_fixture.h"
#include "tools/demo.h"
#include "values_fixture.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using Lines = std::vector<std::string>;

constexpr int64_t kT = 1700000000000;
constexpr int64_t kMinute = 60000;

TEST(AlarmRangeTest, RangesAndTrims) {
  const std::vector<int64_t> times = {1, 2, 2, 2, 3, 4}, one_time = {7, 7, 7};
  // clang-format off
  // times, max, latest, reverse, trim -> "begin-end trimmed"
  const struct { const std::vector<int64_t>& times; int max; bool latest, reverse, trim; const char* want; } cases[] = {
      {times, 0, false, false, true, "0-6 0"},  // no limit: all, nothing trimmed
      {times, 6, true, false, true, "0-6 0"},   // the limit is not reached
      {times, 3, false, false, false, "0-3 0"},
      {times, 3, true, true, false, "0-3 0"},   // latest and reverse: the first three too
      {times, 3, true, false, false, "3-6 0"},
      {times, 3, false, true, false, "3-6 0"},
      // The three alarms at time 2 straddle the cut: none of them is kept, and the count is
      // that of the group now nearest the cut.
      {times, 3, false, false, true, "0-1 1"},
      {times, 2, true, false, true, "4-6 0"},   // the cut falls between groups
      {times, 4, true, false, true, "4-6 1"},
      {times, 5, true, false, true, "1-6 0"},
      // When the whole range is one group nothing is kept, and that group is counted.
      {one_time, 2, true, false, true, "3-3 3"},
      {one_time, 2, false, false, true, "0-0 3"},
  };
  // clang-format on
  for (const auto& c : cases) {
    const AlarmRange r = selectAlarmRange(c.times, c.max, c.latest, c.reverse, c.trim);
    EXPECT_EQ(
        std::to_string(r.begin) + "-" + std::to_string(r.end) + " " + std::to_string(r.trimmed),
        c.want)
        << c.times.size() << " " << c.max << c.latest << c.reverse << c.trim;
  }
}

std::string text(const std::string* s) {
  return s == nullptr ? "-" : *s;
}

// An alarm on one line; its time relative to kT.
std::string describe(const nss1__AlarmUpdate& a) {
  const char* const acks[] = {"NotAcked", "Acked", "Closed"};
  return std::to_string(a.EventId) + " seq " + std::to_string(a.SequenceIndex) + " " +
         std::to_string(a.Time - kT) + " " + text(a.SourcePath) + " = " + text(a.Value) + " (" +
         text(a.NumericValue) + ") '" + text(a.Description) + "' q " + text(a.Quality) + " prio " +
         text(a.BasePriority) + " " + acks[a.AckStatus] + " var " +
         std::to_string(a.VariationLevel) + (a.AutoClosing ? " auto" : "") +
         (a.ConditionPresent ? " raised" : "") + " note '" + text(a.Note) + "'";
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

  // The result text and the count of trimmed alarms, then each alarm.
  Lines active(int max = 0, bool latest = false, bool reverse = false, bool trim = false,
               const char* path = nullptr, int64_t start = 0, int64_t end = 0,
               const char* options = nullptr) {
    nsqv__logRetrieveRequest request;
    std::string path_text = path != nullptr ? path : "", options_text = options ? options : "";
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
    Lines lines = {answer.result + " trimmed " + std::to_string(answer.numTrimmedEvents)};
    if (answer.alarms == nullptr) return lines;
    for (const nss1__AlarmUpdate& a : answer.alarms->AlarmUpdate) lines.push_back(describe(a));
    return lines;
  }

  ServiceContext context_;
  wsgate_test::SoapContext soap_{&context_};
};

TEST_F(AlarmsTest, AnAlarmNodeThatCannotBeReadWhole) {
  auto describe1002 = [&] {
    const nss1__AlarmUpdate* a = buildActiveAlarm(soap_.get(), cds, "/Alarms/1002", nullptr);
    return a != nullptr ? describe(*a) : "none";
  };
  // An .AutoClosing that is not a boolean counts as false.
  api_status_t status;
  cds.set_leaf("/Alarms/1002/.AutoClosing", toolkit::CElement("true"), status, false, "test");
  EXPECT_EQ(describe1002().find(" auto "), std::string::npos);
  pcd_inject_failure(cds.handle(), 0, 1);
  EXPECT_EQ(describe1002(), "none");  // the seven leaves cannot be read
}

TEST_F(AlarmsTest, TheTableInOrderFilteredAndCut) {
  const std::string ok = " trimmed 0";
  const std::string a1 =
      "1001 seq 1 0 /Meter1/Voltage = 254.2 (-) 'Voltage above critical limit' q 192 prio 100 "
      "NotAcked var 2 raised note ''";
  const std::string a2 =
      "1002 seq 2 60000 /AHU1/SupplyTemp = 26.8 (-) 'Supply temperature high' q 192 prio 500 "
      "Acked var 1 auto raised note 'Checked by operator'";
  // No .BasePriority: 5000. A boolean and a multistate source read as their state texts.
  const std::string a3 =
      "1003 seq 3 120000 /Meter10/Online = false (0) 'Communication lost' q 192 prio 5000 "
      "Closed var 1 auto note 'Cable replaced'";
  const std::string a4 =
      "4294967297 seq 4 60000 /Meter1/Status = Fault (8) 'Meter fault' q 192 prio 200 NotAcked "
      "var 1 raised note ''";
  // clang-format off
  // active(max, latest, reverse, trim, path, start, end) -> the answer
  const struct { Lines lines, expected; } cases[] = {
      {active(), {ok, a1, a2, a4, a3}},  // by time, then event id
      {active(0, false, true), {ok, a3, a4, a2, a1}},
      // The path is a regular expression searched in the source path, not a path prefix.
      {active(0, false, false, false, "/Meter1"), {ok, a1, a4, a3}},
      {active(0, false, false, false, "Online$"), {ok, a3}},
      {active(0, false, false, false, "("), {ok}},
      {active(0, false, false, false, ""), {ok, a1, a2, a4, a3}},
      // Bounds count only above 0.
      {active(0, false, false, false, nullptr, kT + 1, kT + 2 * kMinute - 1), {ok, a2, a4}},
      {active(0, false, false, false, nullptr, -5, kT + 1), {ok, a1}},
      {active(2, true), {ok, a4, a3}},
      {active(2, true, false, true), {" trimmed 1", a3}},
      {active(2, false, false, true), {" trimmed 1", a1}},
  };
  // clang-format on
  for (const auto& c : cases) EXPECT_EQ(c.lines, c.expected);

  // A second node for the event id and time of 1001, listed before it: the first listed
  // stays. "AlarmCount" and anything below it is never an alarm.
  api_status_t status;
  for (const char* name : {"/SourcePath/Value", "/AlarmMsg/Value", "/SequenceID/Value"}) {
    toolkit::CElement value;
    element_property_t prop;
    cds.get_leaf(std::string("/Alarms/1001") + name, status, value, prop);
    if (std::string(name) == "/AlarmMsg/Value") value.set_string("The copy");
    ASSERT_EQ(cds.add_node(std::string("/Alarms/0001001") + name, status, "test"), 0);
    cds.set_leaf(std::string("/Alarms/0001001") + name, value, status, false, "test");
  }
  ASSERT_EQ(cds.add_node("/Alarms/AlarmCount/SourcePath", status, "test"), 0);
  const Lines copy = active();
  ASSERT_EQ(copy.size(), 5u);
  EXPECT_NE(copy[1].find("'The copy'"), std::string::npos);

  // Without a table: an error text under the request's options, and no list.
  ASSERT_EQ(cds.remove_node("/Alarms", status, false, "test"), 0);
  EXPECT_EQ(active(), (Lines{"? 22 No Data Available : No Alarm table trimmed 0"}));
  EXPECT_EQ(active(0, false, false, false, nullptr, 0, 0, "errorPrefix=E:"),
            (Lines{"E:? 22 No Data Available : No Alarm table trimmed 0"}));
}

// Every store call of the table's read failing in turn: an answer each time, never an
// alarm out of order (an alarm told by its event id, sequence index and time).
TEST_F(AlarmsTest, AReadFailingAtAnyStoreCall) {
  auto keys = [](Lines lines) {
    for (std::string& line : lines) line = line.substr(0, line.find(" /"));
    return lines;
  };
  const Lines all = keys(active());
  for (int skip = 0; skip < 40; ++skip) {
    const Lines answer =
        keys(wsgate_test::withFailure(cds.handle(), skip, [&] { return active(); }));
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
  const AlarmAck first{1001, std::string("seen"), 2, 1}, second{4294967297, std::nullopt, 1, 2};
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
  Lines described;
  for (const toolkit::CEvent& e : events) {
    described.push_back(std::to_string(e.event_id) + " kind " + std::to_string(e.kind) + "/" +
                        std::to_string(e.category) + " ack " + std::to_string(e.ack_status) +
                        " var " + std::to_string(e.variation_level) + " '" + e.note + "' " +
                        e.source + " '" + e.source_path + "' " +
                        std::to_string(vtx_UNIXtoVTXtime64(&e.timestamp) - kT));
  }
  EXPECT_EQ(described,
            (Lines{"4294967297 kind 16/10 ack 2 var 1 '' Web-Services:operator@10.0.0.7 '' 300000",
                   "1001 kind 16/10 ack 1 var 2 'seen' Web-Services:operator@10.0.0.7 '' 300000"}));
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

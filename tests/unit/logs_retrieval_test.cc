// The delta and event log operations: limits, selection, trimming, the records left out,
// the retries and their cut-off, and every error text with its line on standard error.
#include <string>
#include <vector>

#include "logs_fixture.h"

namespace {

using toolkit::CEvent;
using wsgate_test::LogServiceTest;

const std::string kTooBig = "? 34 Result Too Big to Return : Please request less than ";

CEvent record(time_t sec, const std::string& path, const std::string& value,
              int32_t kind = CEvent::kKindDelta) {
  CEvent event;
  event.timestamp = {sec, 0};
  event.kind = kind;
  event.source_path = path;
  event.value = toolkit::CElement(value);
  event.set_quality(CEvent::kQualityGood);
  return event;
}

nsqv__logRetrieveRequest request(int max, bool latest = false, bool reverse = false,
                                 bool trim = false, int64_t start_s = 0, int64_t end_s = 0) {
  nsqv__logRetrieveRequest r;
  r.rqstType = nsqv__LgRqType__LgRqTypDeltas;
  r.nMaxToReturn = max;
  r.bLatestEvents = latest;
  r.bReverseOrder = reverse;
  r.bTrimIncomplete = trim;
  r.startTime = start_s * 1000;
  r.endTime = end_s * 1000;
  return r;
}

// The delta log holds a (1000 s), b1 b2 and a /Software record (2000 s), c d (3000 s).
class LogRetrievalTest : public LogServiceTest {
 protected:
  void SetUp() override {
    appendEvents(context.logs.delta_log_path,
                 {record(1000, "/A/Value", "a"), record(2000, "/B/Value", "b1"),
                  record(2000, "/C/Value", "b2"), record(2000, "/Software/X/Value", "hidden"),
                  record(3000, "/A/Value", "c"), record(3000, "/D/Value", "d")});
  }

  // Calls getDeltaLog; returns the values joined by " " (or "-" without a list), and sets
  // result_, trimmed_ and err_.
  std::string deltas(nsqv__logRetrieveRequest r) {
    nsqv__getDeltaLogResponse response;
    err_ = stderrOf([&] { EXPECT_EQ(nsqv__getDeltaLog(soap, &r, response), SOAP_OK); });
    result_ = response.result;
    trimmed_ = response.numTrimmedPoints;
    if (response.loggedValues == nullptr) return "-";
    std::string text;
    for (const nss1__PublishedValue& v : response.loggedValues->PublishedValue) {
      text += (text.empty() ? "" : " ") + *v.Value;
    }
    return text;
  }

  std::string result_;
  int trimmed_ = -1;
  std::string err_;
};

TEST_F(LogRetrievalTest, SelectionOrderAndTrimming) {
  // clang-format off
  // request(max, latest, reverse, trim, start s, end s) -> values, trimmed
  const struct { nsqv__logRetrieveRequest request; const char* values; int trimmed; } cases[] = {
      {request(0), "a b1 b2 c d", 0},  // endTime 0: to the end of the log
      {request(2), "a b1", 0},
      {request(2, true), "c d", 0},
      {request(2, true, true), "d c", 0},
      {request(2, false, true), "b1 a", 0},
      {request(100, false, false, false, 2000, 2000), "b1 b2", 0},
      {request(100, false, false, false, 2000), "b1 b2 c d", 0},
      {request(100, false, false, false, 0, 1000), "a", 0},
      {request(-1), "", 0},
      // The last group was cut: it goes, and the count is the whole group's size.
      {request(2, false, false, true), "a", 3},
      {request(3, false, false, true), "a", 3},
      {request(4, false, false, true), "a b1 b2", 0},  // the whole group fitted
      {request(2, false, false, true, 2000), "", 3},   // every record was in the group
      {request(5, true, false, true), "b1 b2 c d", 0},
      {request(1, true, false, true), "", 2},
      {request(100, false, false, true), "a b1 b2 c d", 0},  // not full: kept
  };
  // clang-format on
  for (const auto& c : cases) {
    const nsqv__logRetrieveRequest& r = c.request;
    const std::string values = deltas(r);  // sets trimmed_ and result_
    EXPECT_EQ(values + " " + std::to_string(trimmed_) + result_,
              c.values + (" " + std::to_string(c.trimmed)))
        << "max " << r.nMaxToReturn << " from " << r.startTime << " to " << r.endTime << " latest "
        << r.bLatestEvents << " reverse " << r.bReverseOrder << " trim " << r.bTrimIncomplete;
  }
  nsqv__logRetrieveRequest r = request(0);
  r.path = text("/A");
  EXPECT_EQ(deltas(r), "a c");
  // -1 ms is the second -1, which stands for "no start": a record before 1970 shows.
  appendEvents(context.logs.delta_log_path, {record(-5, "/Old/Value", "old")});
  EXPECT_EQ(deltas(request(1, false, false, false, -2)), "a");
  r = request(1);
  r.startTime = -1;
  EXPECT_EQ(deltas(r), "old");
  // An absent request reads as one without any element: from 1970, up to the limit.
  nsqv__getDeltaLogResponse response;
  ASSERT_EQ(nsqv__getDeltaLog(soap, nullptr, response), SOAP_OK);
  EXPECT_EQ(response.loggedValues->PublishedValue.size(), 5u);
  nsqv__getEventLogResponse events;
  ASSERT_EQ(nsqv__getEventLog(soap, nullptr, events), SOAP_OK);
  EXPECT_EQ(events.result, "? 21 No History : Failed to open event log database");
}

TEST_F(LogRetrievalTest, TheLimitsFollowTheMaximumRecordsSetting) {
  EXPECT_EQ(deltas(request(10000)), "a b1 b2 c d");
  EXPECT_EQ(deltas(request(10001)), "-");
  EXPECT_EQ(result_ + err_, kTooBig + "10000 records.");
  context.logs.max_records = 3;
  EXPECT_EQ(deltas(request(0)), "a b1 b2");
  EXPECT_EQ(deltas(request(4)), "-");
  EXPECT_EQ(result_, kTooBig + "3 records.");
  // Event records are counted at four to a delta record.
  nsqv__logRetrieveRequest events = request(1);
  events.rqstType = nsqv__LgRqType__LgRqTypAlarmEvents;
  nsqv__getEventLogResponse response;
  ASSERT_EQ(nsqv__getEventLog(soap, &events, response), SOAP_OK);
  EXPECT_EQ(response.result, kTooBig + "0 records.");
  context.logs.max_records = 10000;
  events.nMaxToReturn = 2501;
  ASSERT_EQ(nsqv__getEventLog(soap, &events, response), SOAP_OK);
  EXPECT_EQ(response.result, kTooBig + "2500 records.");
}

TEST_F(LogRetrievalTest, RetriesCountAsSuccessOnlyForTheFirstThreeAttempts) {
  const std::string failed = "? 22 No Data Available : Database retrieval failed with these params";
  const std::string line = "Failed to get events from database " + context.logs.delta_log_path;
  // clang-format off
  const struct { int failures; const char* values; std::string result, err; } cases[] = {
      {2, "a b1 b2 c d", "", ""},
      {3, "a b1 b2 c d", failed, line + ", dbResult = 0 \n"},  // a late success keeps its records
      {4, "a b1 b2 c d", failed, line + ", dbResult = 0 \n"},
      {5, "-", failed, line + ", dbResult = 5 \n"},
  };
  // clang-format on
  double before = 0;
  for (const auto& c : cases) {
    pcd_log_inject_failure(0, c.failures);
    const std::string values = deltas(request(0));
    EXPECT_EQ(values + "|" + result_ + "|" + err_, c.values + ("|" + c.result + "|" + c.err));
    EXPECT_EQ(waitedSeconds() - before, c.failures) << "one second per failed attempt";
    before = waitedSeconds();
  }
  // A failed second read of the cut group leaves the records untrimmed.
  pcd_log_inject_failure(1, 1);
  const std::string values = deltas(request(2, false, false, true));
  EXPECT_EQ(values + " " + std::to_string(trimmed_) + result_, "a b1 0");
  // A log that cannot be opened is not retried.
  before = waitedSeconds();
  context.logs.delta_log_path += ".missing";
  EXPECT_EQ(deltas(request(0)), "-");
  EXPECT_EQ(result_, "? 21 No History : Failed to open event log database");
  EXPECT_EQ(err_, "Failed to open database " + context.logs.delta_log_path + ", dbResult = 14 \n");
  EXPECT_EQ(waitedSeconds(), before);
}

TEST_F(LogServiceTest, EventLogsByRequestTypeWithAlarmsAsAlarmUpdates) {
  CEvent alarm = record(10, "/Fan/Value", "true", CEvent::kKindAlarm);
  alarm.value.convert_type(DATA_TYPE_BOOL);
  alarm.ack_status = 1;
  CEvent level = record(20, "/", "", CEvent::kKindSystemLevel);
  level.level_quality = 3;
  appendEvents(context.logs.event_log_path,
               {alarm, record(11, "/Software/Y/Value", "x", 2), record(12, "/E/Value", "e", 2)});
  appendEvents(context.logs.system_log_path, {level});
  api_status_t status;
  ASSERT_EQ(context.cds.add_node("/Fan", status, "test"), 0);
  ASSERT_EQ(context.cds.set_leaf("/Fan/PossibleValues", toolkit::CElement("Off;On"), status, false,
                                 "test"),
            0);
  for (auto type : {nsqv__LgRqType__LgRqTypAlarmEvents, nsqv__LgRqType__LgRqTypSystemEvents,
                    nsqv__LgRqType__LgRqTypDeltas}) {
    nsqv__logRetrieveRequest r = request(0);
    r.rqstType = type;
    nsqv__getEventLogResponse response;
    ASSERT_EQ(nsqv__getEventLog(soap, &r, response), SOAP_OK);
    EXPECT_EQ(response.result, "");
    std::string described;
    for (const nss1__Event* e : response.events->Event) {
      auto text = [](const std::string* s) { return s != nullptr ? *s : "-"; };
      described += std::string(e->soap_type() == SOAP_TYPE_nss1__AlarmUpdate ? " alarm " : " ") +
                   text(e->SourcePath) + " " + text(e->Value) + " '" + text(e->Description) + "'";
      if (e->soap_type() == SOAP_TYPE_nss1__AlarmUpdate) {
        EXPECT_EQ(static_cast<const nss1__AlarmUpdate*>(e)->AckStatus, nss1__AckStatus__Acked);
      }
    }
    // The /Software record is left out; an alarm's value is its state text, from the store.
    EXPECT_EQ(described, type == nsqv__LgRqType__LgRqTypAlarmEvents ? " alarm /Fan On '' /E e ''"
                                                                    : " /  'Critical Event'")
        << type;
  }
}

}  // namespace

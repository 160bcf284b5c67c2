// The event record converters as a table of records -> wire objects, on the values fixture's
// store (/Fan has the texts "Off;On", /Mode "Off;Auto;Manual", /Online and /Count none).
#include "subscriptions/event_records.h"

#include <gtest/gtest.h>

#include <string>

#include "soap_fixture.h"
#include "values_fixture.h"

namespace {

using toolkit::CEvent;
using wsgate_test::typed;

const std::string kChanged = "/Software/System Settings/Configuration Changed";

// A record of `kind` for the leaf `path` holding `text` as a `type`.
CEvent record(int32_t kind, const std::string& path, const char* type, const char* text,
              uint16_t quality = CEvent::kQualityGood, const std::string& message = "") {
  CEvent e;
  e.kind = kind;
  e.source_path = path;
  e.value = typed(type, text);
  e.set_quality(quality);
  e.message = message;
  e.event_id = 42;
  e.sequence_index = 7;
  e.timestamp = {1700000000, 250000};
  return e;
}

CEvent levelRecord(uint32_t level, const std::string& message = "") {
  CEvent e = record(CEvent::kKindSystemLevel, "/Temp/Value", "Real", "1", 0, message);
  e.level_quality = level;
  return e;
}

std::string text(const std::string* s) {
  return s == nullptr ? "-" : *s;
}

// The fields of an event on one line: type, source, value, numeric value, 'description' and
// quality; "-" for an absent element, "none" for no object.
std::string describe(const nss1__Event* e) {
  if (e == nullptr) return "none";
  EXPECT_EQ(e->EventId, 42u);
  EXPECT_EQ(e->SequenceIndex, 7u);
  EXPECT_EQ(e->Time, 1700000000250);
  const char* const types[] = {"Event", "Alarm", "StructureChanged", "LostEvent"};
  return std::string(types[e->EventType]) + " " + text(e->SourcePath) + " " + text(e->Value) + " " +
         text(e->NumericValue) + " '" + text(e->Description) + "' " + text(e->Quality);
}

class EventRecordsTest : public wsgate_test::ValuesTest {
 protected:
  wsgate_test::SoapContext soap;
};

TEST_F(EventRecordsTest, EventRecords) {
  // clang-format off
  const struct { CEvent record; std::string expected; } cases[] = {
      // Sources: a Value leaf is its node, with state texts and their numbers; another leaf
      // is NODE:ATTRIBUTE; the root stays "/".
      {record(8, "/Fan/Value", "Boolean", "true"), "Event /Fan On 1 '' -"},
      {record(8, "/Online/Value", "Boolean", "false"), "Event /Online false 0 '' -"},
      {record(8, "/Mode/Value", "Unsigned", "2"), "Event /Mode Manual 2 '' -"},
      {record(8, "/Count/Value", "Unsigned", "9"), "Event /Count 9 - '' -"},
      {record(8, "/Temp/.HiCriticalLimit", "Real", "30"), "Event /Temp:.HiCriticalLimit 30 - '' -"},
      {record(8, "/Fan/.AlarmOnValue", "Boolean", "true"), "Event /Fan:.AlarmOnValue true - '' -"},
      {record(8, "/", "Real", "1"), "Event / 1 - '' -"},
      // Quality: absent when good, else the code; a level-coded record always reads good.
      {record(8, "/Temp/Value", "Real", "1", 0, "Lost"), "Event /Temp 1 - 'Lost' 0"},
      {record(8, "/Temp/Value", "Real", "1", 64), "Event /Temp 1 - '' 64"},
      {levelRecord(1), "Event /Temp 1 - 'Informational Event' 192"},
      {levelRecord(2), "Event /Temp 1 - 'Cautionary Event' 192"},
      {levelRecord(3), "Event /Temp 1 - 'Critical Event' 192"},
      {levelRecord(9), "Event /Temp 1 - 'System Event' 192"},
      {levelRecord(3, "Disk full"), "Event /Temp 1 - 'Disk full' 192"},
      // "/Software" is not shown, except a configuration change to true.
      {record(8, "/Software/Data Servers/X/Value", "Boolean", "true"), "none"},
      {record(8, "/SoftwareUpdate/Value", "Boolean", "true"), "none"},
      {record(8, kChanged + "/Value", "Boolean", "false"), "none"},
      {record(8, kChanged + "/Value", "Boolean", "true"), "StructureChanged / - - 'Device Node Structure Changed' -"},
      {record(8, kChanged, "Boolean", "true", 0, "Reloaded"), "StructureChanged / - - 'Reloaded' 0"},
  };
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(describe(buildEvent(soap.get(), cds, c.record)), c.expected) << c.record.source_path;
  }
}

TEST_F(EventRecordsTest, AlarmRecordsAddTheAlarmFields) {
  CEvent alarm = record(8, "/Mode/Value", "Unsigned", "1");
  alarm.ack_status = 2;
  alarm.condition_present = true;
  alarm.auto_closing = true;
  alarm.variation_level = -3;
  alarm.note = "Seen";
  alarm.base_priority = -100;
  auto fields = [&] {
    const nss1__AlarmUpdate* a = buildAlarmEvent(soap.get(), cds, alarm);
    if (a == nullptr) return std::string("none");
    return describe(a) + " ack " + std::to_string(a->AckStatus) + " var " +
           std::to_string(a->VariationLevel) + (a->ConditionPresent ? " raised" : "") +
           (a->AutoClosing ? " auto" : "") + " note " + text(a->Note) + " prio " +
           text(a->BasePriority);
  };
  EXPECT_EQ(fields(), "Alarm /Mode Auto 1 '' - ack 2 var -3 raised auto note Seen prio -100");
  alarm.note.clear();  // no note and no priority: both absent
  alarm.base_priority = 0;
  EXPECT_EQ(fields(), "Alarm /Mode Auto 1 '' - ack 2 var -3 raised auto note - prio -");
  // A structure change reported by the alarm log is still an alarm.
  alarm.source_path = kChanged + "/Value";
  alarm.value = typed("Boolean", "true");
  EXPECT_EQ(fields(),
            "Alarm / - - 'Device Node Structure Changed' - ack 2 var -3 raised auto "
            "note - prio -");
  alarm.value = typed("Boolean", "false");
  EXPECT_EQ(fields(), "none");
}

TEST_F(EventRecordsTest, DeltaRecords) {
  // clang-format off
  const struct { CEvent record; std::string expected; } cases[] = {
      {record(1, "/Fan/Value", "Boolean", "false"), "/Fan Off 0 192"},
      {record(1, "/Mode/Value", "Unsigned", "0", 0), "/Mode Off 0 0"},
      {record(1, "/Temp/Minimum", "Real", "-1.5", 16), "/Temp:Minimum -1.5 - 16"},
      // Even a configuration change is not a published value.
      {record(1, kChanged + "/Value", "Boolean", "true"), "none"},
  };
  // clang-format on
  for (const auto& c : cases) {
    const nss1__PublishedValue* p = vtxPublishedValue(soap.get(), cds, c.record);
    if (p != nullptr) {
      EXPECT_EQ(p->Time, 1700000000250);
      EXPECT_TRUE(p->Trend && !p->RealTime);
    }
    EXPECT_EQ(p == nullptr ? "none"
                           : text(p->Path) + " " + text(p->Value) + " " + text(p->NumericValue) +
                                 " " + std::to_string(p->Quality),
              c.expected);
  }
}

// The active alarm table passes its source paths as the store holds them.
TEST_F(EventRecordsTest, SourcesNotYetNormalized) {
  // clang-format off
  const struct { const char *path, *type, *value, *expected; } cases[] = {
      {"/Fan", "Boolean", "true", "/Fan On 1"},
      {"//Mode/", "Unsigned", "2", "/Mode Manual 2"},
      {"/Temp:.HiCriticalLimit", "Real", "30", "/Temp:.HiCriticalLimit 30 -"},
      {"/Gone/Point", "Real", "1", "/Gone:Point 1 -"},
      {"no path", "Real", "1", ":no path 1 -"},
  };
  // clang-format on
  for (const auto& c : cases) {
    const EventSource s = formatEventSource(cds, c.path, false, typed(c.type, c.value));
    EXPECT_EQ(s.path + " " + s.value + " " + s.numeric.value_or("-"), c.expected);
  }
}

}  // namespace

// The event record converters as a table of records -> wire objects, on the values fixture's
// store (/Fan has the texts "Off;On", /Mode "Off;Auto;Manual", /Online and /Count none).
#include "subscriptions/event_records.h"

#include <gtest/gtest.h>

#include <string>

#include "soap_fixture.h"
#include "values_fixture.h"

namespace {

using toolkit::CElement;
using toolkit::CEvent;

constexpr timeval kStamp{1700000000, 250000};  // 1700000000250 in platform time

CElement boolean(bool b) {
  CElement v;
  v.set_bool(b);
  return v;
}
CElement uint(uint32_t u) {
  CElement v;
  v.set_uint(u);
  return v;
}
CElement real(double d) {
  CElement v;
  v.set_real(d);
  return v;
}

CEvent record(int32_t kind, const std::string& path, const CElement& value,
              uint16_t quality = CEvent::kQualityGood, const std::string& message = "") {
  CEvent e;
  e.kind = kind;
  e.source_path = path;
  e.value = value;
  e.set_quality(quality);
  e.message = message;
  e.event_id = 42;
  e.sequence_index = 7;
  e.timestamp = kStamp;
  return e;
}

CEvent levelRecord(uint32_t level, const std::string& message = "") {
  CEvent e = record(CEvent::kKindSystemLevel, "/Temp/Value", real(1), 0, message);
  e.level_quality = level;
  return e;
}

std::string text(const std::string* s) {
  return s == nullptr ? "-" : "'" + *s + "'";
}

const char* const kEventTypes[] = {"Event", "Alarm", "StructureChanged", "LostEvent"};

// The fields of an event on one line; "-" for an absent element, "none" for no object.
std::string describe(const nss1__Event* e) {
  if (e == nullptr) return "none";
  EXPECT_EQ(e->EventId, 42u);
  EXPECT_EQ(e->SequenceIndex, 7u);
  EXPECT_EQ(e->Time, 1700000000250);
  EXPECT_EQ(e->ComtradeWaveformUrls, nullptr);
  EXPECT_EQ(e->Details, nullptr);
  return std::string(kEventTypes[e->EventType]) + " " + text(e->SourcePath) + " value " +
         text(e->Value) + " numeric " + text(e->NumericValue) + " desc " + text(e->Description) +
         " quality " + text(e->Quality);
}

std::string describe(const nss1__PublishedValue* p) {
  if (p == nullptr) return "none";
  EXPECT_EQ(p->Time, 1700000000250);
  EXPECT_FALSE(p->RealTime);
  EXPECT_TRUE(p->Trend);
  return text(p->Path) + " value " + text(p->Value) + " numeric " + text(p->NumericValue) +
         " quality " + std::to_string(p->Quality);
}

class EventRecordsTest : public wsgate_test::ValuesTest {
 protected:
  wsgate_test::SoapContext soap;
};

TEST_F(EventRecordsTest, EventRecords) {
  const std::string changed = "/Software/System Settings/Configuration Changed";
  const struct {
    CEvent record;
    std::string expected;
  } cases[] = {
      // Sources: a Value leaf is its node, with state texts and their numbers; another leaf
      // is NODE:ATTRIBUTE; the root stays "/".
      {record(8, "/Fan/Value", boolean(true)),
       "Event '/Fan' value 'On' numeric '1' desc '' quality -"},
      {record(8, "/Online/Value", boolean(false)),
       "Event '/Online' value 'false' numeric '0' desc '' quality -"},
      {record(8, "/Mode/Value", uint(2)),
       "Event '/Mode' value 'Manual' numeric '2' desc '' quality -"},
      {record(8, "/Count/Value", uint(9)), "Event '/Count' value '9' numeric - desc '' quality -"},
      {record(8, "/Temp/Value", real(21.5)),
       "Event '/Temp' value '21.5' numeric - desc '' quality -"},
      {record(8, "/Temp/.HiCriticalLimit", real(30)),
       "Event '/Temp:.HiCriticalLimit' value '30' numeric - desc '' quality -"},
      {record(8, "/Fan/.AlarmOnValue", boolean(true)),
       "Event '/Fan:.AlarmOnValue' value 'true' numeric - desc '' quality -"},
      {record(8, "/", real(1)), "Event '/' value '1' numeric - desc '' quality -"},
      // Quality: absent when good, else the code; a level-coded record always reads good.
      {record(8, "/Temp/Value", real(1), 0, "Lost"),
       "Event '/Temp' value '1' numeric - desc 'Lost' quality '0'"},
      {record(8, "/Temp/Value", real(1), 64),
       "Event '/Temp' value '1' numeric - desc '' quality '64'"},
      {levelRecord(1),
       "Event '/Temp' value '1' numeric - desc 'Informational Event' quality '192'"},
      {levelRecord(2), "Event '/Temp' value '1' numeric - desc 'Cautionary Event' quality '192'"},
      {levelRecord(3), "Event '/Temp' value '1' numeric - desc 'Critical Event' quality '192'"},
      {levelRecord(9), "Event '/Temp' value '1' numeric - desc 'System Event' quality '192'"},
      {levelRecord(3, "Disk full"),
       "Event '/Temp' value '1' numeric - desc 'Disk full' quality '192'"},
      // "/Software" is not shown, except a configuration change to true.
      {record(8, "/Software/Data Servers/X/Value", boolean(true)), "none"},
      {record(8, "/SoftwareUpdate/Value", boolean(true)), "none"},
      {record(8, changed + "/Value", boolean(false)), "none"},
      {record(8, changed + "/Value", boolean(true)),
       "StructureChanged '/' value - numeric - desc 'Device Node Structure Changed' quality -"},
      {record(8, changed, boolean(true), 0, "Reloaded"),
       "StructureChanged '/' value - numeric - desc 'Reloaded' quality '0'"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(describe(buildEvent(soap.get(), cds, c.record)), c.expected) << c.record.source_path;
  }
}

TEST_F(EventRecordsTest, AlarmRecordsAddTheAlarmFields) {
  CEvent alarm = record(8, "/Mode/Value", uint(1));
  alarm.ack_status = 2;
  alarm.condition_present = true;
  alarm.auto_closing = true;
  alarm.variation_level = -3;
  alarm.note = "Seen";
  alarm.base_priority = -100;
  const nss1__AlarmUpdate* a = buildAlarmEvent(soap.get(), cds, alarm);
  EXPECT_EQ(describe(a), "Alarm '/Mode' value 'Auto' numeric '1' desc '' quality -");
  EXPECT_EQ(a->AckStatus, nss1__AckStatus__Closed);
  EXPECT_TRUE(a->ConditionPresent);
  EXPECT_TRUE(a->AutoClosing);
  EXPECT_EQ(a->VariationLevel, -3);
  EXPECT_EQ(text(a->Note), "'Seen'");
  EXPECT_EQ(text(a->BasePriority), "'-100'");

  // No note and no priority: both absent.
  alarm.note.clear();
  alarm.base_priority = 0;
  a = buildAlarmEvent(soap.get(), cds, alarm);
  EXPECT_EQ(a->Note, nullptr);
  EXPECT_EQ(a->BasePriority, nullptr);

  // A structure change reported by the alarm log is still an alarm.
  alarm.source_path = "/Software/System Settings/Configuration Changed/Value";
  alarm.value = boolean(true);
  EXPECT_EQ(describe(buildAlarmEvent(soap.get(), cds, alarm)),
            "Alarm '/' value - numeric - desc 'Device Node Structure Changed' quality -");
  alarm.value = boolean(false);
  EXPECT_EQ(buildAlarmEvent(soap.get(), cds, alarm), nullptr);
}

TEST_F(EventRecordsTest, DeltaRecords) {
  const struct {
    CEvent record;
    std::string expected;
  } cases[] = {
      {record(1, "/Fan/Value", boolean(false)), "'/Fan' value 'Off' numeric '0' quality 192"},
      {record(1, "/Mode/Value", uint(0), 0), "'/Mode' value 'Off' numeric '0' quality 0"},
      {record(1, "/Temp/Minimum", real(-1.5), 16),
       "'/Temp:Minimum' value '-1.5' numeric - quality 16"},
      // Even a configuration change is not a published value.
      {record(1, "/Software/System Settings/Configuration Changed/Value", boolean(true)), "none"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(describe(vtxPublishedValue(soap.get(), cds, c.record)), c.expected)
        << c.record.source_path;
  }
}

// The active alarm table passes its source paths as the store holds them.
TEST_F(EventRecordsTest, SourcesNotYetNormalized) {
  const struct {
    const char* path;
    CElement value;
    const char* source;
    const char* value_text;
    const char* numeric;
  } cases[] = {
      {"/Fan", boolean(true), "/Fan", "On", "1"},
      {"//Mode/", uint(2), "/Mode", "Manual", "2"},
      {"/Temp:.HiCriticalLimit", real(30), "/Temp:.HiCriticalLimit", "30", nullptr},
      {"/Gone/Point", real(1), "/Gone:Point", "1", nullptr},
      {"no path", real(1), ":no path", "1", nullptr},
  };
  for (const auto& c : cases) {
    const EventSource source = formatEventSource(cds, c.path, false, c.value);
    EXPECT_EQ(source.path, c.source) << c.path;
    EXPECT_EQ(source.value, c.value_text) << c.path;
    EXPECT_EQ(source.numeric.value_or("-"), c.numeric != nullptr ? c.numeric : "-") << c.path;
  }
}

}  // namespace

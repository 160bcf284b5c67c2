#include "subscriptions/alarms.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "platform/event.h"
#include "platform/path.h"
#include "platform/vtx.h"
#include "service/errors.h"
#include "service/options.h"
#include "subscriptions/event_records.h"
#include "subscriptions/soap_text.h"
#include "values/writer_source.h"

namespace {

constexpr const char* kAlarmTable = "/Alarms";
// The category word that the alarm handling expects of an acknowledgement.
constexpr int32_t kAckCategory = 10;
// Alarm state codes of the table's AlarmLevel.
constexpr int kLevelRaised = 1;
constexpr int kLevelAcked = 3;
constexpr int kLevelClosed = 5;
constexpr const char* kDefaultBasePriority = "5000";

// The leaves of an alarm node read in one call, in this order.
const char* const kAlarmLeaves[] = {
    "/SourcePath/Value", "/SourceValue/Value",     "/AlarmMsg/Value", "/SequenceID/Value",
    "/AlarmLevel/Value", "/ConditionRaised/Value", "/Note/Value"};
enum AlarmLeaf { kSourcePath, kSourceValue, kMessage, kSequence, kLevel, kRaised, kNote };

// A leaf read alone; false when it is missing or cannot be read.
bool readLeaf(toolkit::CCds& cds, const std::string& path, toolkit::CElement& value) {
  api_status_t status;
  element_property_t prop;
  return cds.get_leaf(path, status, value, prop) == 0 && status == API_STATUS_OK;
}

// A regular-expression error counts as no match: a catastrophic pattern gives up rather
// than hold the only thread.
bool matches(const Pattern* filter, const std::string& text) {
  if (filter == nullptr) return true;
  try {
    return filter->search(text);
  } catch (const std::exception&) {
    return false;
  }
}

void reportAck(const AlarmAck& ack) {
  fprintf(stderr, "Ack'ing Alarm #%" PRIu64 " ", ack.event_id);
  fprintf(stderr, "(AckStatus=%d, ", ack.status);
  fprintf(stderr, "varLevel=%d). \n", ack.variation_level);
  if (ack.note) fprintf(stderr, "               Note = %s \n", ack.note->c_str());
}

struct ListedAlarm {
  int64_t time;
  uint64_t event_id;
  nss1__AlarmUpdate* alarm;
};

}  // namespace

std::vector<std::string> acknowledgeAlarms(toolkit::CCds& cds, const std::vector<AlarmAck>& acks) {
  const std::string source = writerSource();
  std::vector<std::string> results(acks.size());
  for (size_t i = 0; i < acks.size(); ++i) {
    const AlarmAck& ack = acks[i];
    reportAck(ack);
    toolkit::CEvent event;
    event.kind = toolkit::CEvent::kKindAcknowledgement;
    event.category = kAckCategory;
    event.event_id = ack.event_id;
    event.ack_status = ack.status;
    event.variation_level = ack.variation_level;
    if (ack.note) event.note = *ack.note;
    event.source = source;
    event.timestamp = vtx_VTXtoUNIXtime64(vtx_UTCtime64());
    std::vector<api_status_t> statuses;
    if (cds.events_send({event}, statuses) != 0 || statuses.empty() ||
        statuses[0] != API_STATUS_OK) {
      formatError(kWsWriteFailed20, "CDS event_send failed", results[i], nullptr);
    }
  }
  return results;
}

nss1__AlarmUpdate* buildActiveAlarm(struct soap* soap, toolkit::CCds& cds, const std::string& path,
                                    const Pattern* filter) {
  std::vector<std::string> paths;
  for (const char* leaf : kAlarmLeaves) paths.push_back(path + leaf);
  std::vector<api_status_t> statuses;
  std::vector<toolkit::CElement> leaves;
  std::vector<element_property_t> props;
  if (cds.get_leaves(paths, statuses, leaves, props) != 0) return nullptr;
  const std::string source_path = leaves[kSourcePath].to_string();
  if (!matches(filter, source_path)) return nullptr;

  nss1__AlarmUpdate* alarm = soap_new_nss1__AlarmUpdate(soap);
  if (alarm == nullptr) return nullptr;
  alarm->EventId =
      static_cast<uint64_t>(std::strtoll(CPath(path).LopLastSubpath().c_str(), nullptr, 10));
  alarm->SequenceIndex = leaves[kSequence].to_uint();
  alarm->EventType = nss1__EventType__Alarm;
  alarm->Time = vtx_UNIXtoVTXtime64(&leaves[kSequence].get_time());
  alarm->Description = soapText(soap, leaves[kMessage].to_string());
  EventSource source = formatEventSource(cds, source_path, false, leaves[kSourceValue]);
  alarm->SourcePath = soapText(soap, std::move(source.path));
  alarm->Value = soapText(soap, std::move(source.value));
  alarm->NumericValue = soapText(soap, source.numeric);
  alarm->Quality = soapText(soap, std::string("192"));

  toolkit::CElement optional;
  const bool has_priority =
      readLeaf(cds, path + "/.BasePriority", optional) && optional.get_type() != DATA_TYPE_NONE;
  alarm->BasePriority = soapText(soap, has_priority ? optional.to_string() : kDefaultBasePriority);
  const int level = leaves[kLevel].to_int();
  alarm->AckStatus = level == kLevelAcked    ? nss1__AckStatus__Acked
                     : level == kLevelClosed ? nss1__AckStatus__Closed
                                             : nss1__AckStatus__NotAcked;
  alarm->VariationLevel = level == kLevelRaised ? 2 : 1;
  alarm->AutoClosing = readLeaf(cds, path + "/.AutoClosing", optional) &&
                       optional.get_type() == DATA_TYPE_BOOL && optional.to_bool();
  alarm->ConditionPresent = leaves[kRaised].to_bool();
  alarm->Note = soapText(soap, leaves[kNote].to_string());
  return alarm;
}

AlarmRange selectAlarmRange(const std::vector<int64_t>& times, int max, bool latest, bool reverse,
                            bool trim_incomplete) {
  const size_t n = times.size();
  AlarmRange range{0, n, 0};
  if (max < 1 || n <= static_cast<size_t>(max)) return range;
  const size_t m = static_cast<size_t>(max);
  const bool cut_at_end = latest == reverse;
  range = cut_at_end ? AlarmRange{0, m, 0} : AlarmRange{n - m, n, 0};
  if (!trim_incomplete) return range;
  if (cut_at_end) {
    while (range.end > range.begin && times[range.end - 1] == times[range.end]) --range.end;
  } else {
    while (range.begin < range.end && times[range.begin] == times[range.begin - 1]) ++range.begin;
  }
  if (range.end - range.begin < m) {
    // The group of the kept alarm nearest the cut, deliberately, not the group dropped
    // beyond it; when nothing is kept, the dropped group is the one nearest.
    size_t edge;
    if (range.end == range.begin) {
      edge = cut_at_end ? range.end : range.begin - 1;
    } else {
      edge = cut_at_end ? range.end - 1 : range.begin;
    }
    range.trimmed = static_cast<int>(std::count(times.begin(), times.end(), times[edge]));
  }
  return range;
}

void getActiveAlarms(struct soap* soap, toolkit::CCds& cds, const nsqv__logRetrieveRequest& request,
                     nsqv__getActiveAlarmsResponse& response) {
  const RequestOptions options = parseOptions(request.options);
  response.result.clear();
  response.numTrimmedEvents = 0;
  response.alarms = nullptr;
  std::vector<std::string> children;
  if (CPath(kAlarmTable).getChildPaths(cds, children) != 0) {
    formatError(kWsNoDataAvailable, "No Alarm table", response.result, &options);
    return;
  }
  std::optional<Pattern> filter;
  bool filter_compiles = true;
  if (request.path != nullptr && !request.path->empty()) {
    try {
      filter.emplace(*request.path);
    } catch (const std::exception&) {
      filter_compiles = false;
    }
  }

  std::vector<ListedAlarm> listed;
  if (filter_compiles) {
    for (const std::string& child : children) {
      if (child.find("/AlarmCount") != std::string::npos) continue;
      nss1__AlarmUpdate* alarm = buildActiveAlarm(soap, cds, child, filter ? &*filter : nullptr);
      if (alarm == nullptr) continue;
      if ((request.startTime > 0 && alarm->Time < request.startTime) ||
          (request.endTime > 0 && alarm->Time > request.endTime)) {
        continue;
      }
      listed.push_back({alarm->Time, alarm->EventId, alarm});
    }
  }
  const bool reverse = request.bReverseOrder;
  auto before = [reverse](const ListedAlarm& a, const ListedAlarm& b) {
    if (a.time != b.time) return reverse ? a.time > b.time : a.time < b.time;
    return reverse ? a.event_id > b.event_id : a.event_id < b.event_id;
  };
  // Stable, so that of two alarms with one time and event id the first listed stays.
  std::stable_sort(listed.begin(), listed.end(), before);
  listed.erase(std::unique(listed.begin(), listed.end(),
                           [](const ListedAlarm& a, const ListedAlarm& b) {
                             return a.time == b.time && a.event_id == b.event_id;
                           }),
               listed.end());

  std::vector<int64_t> times;
  times.reserve(listed.size());
  for (const ListedAlarm& a : listed) times.push_back(a.time);
  const AlarmRange range = selectAlarmRange(times, request.nMaxToReturn, request.bLatestEvents,
                                            reverse, request.bTrimIncomplete);
  response.numTrimmedEvents = range.trimmed;
  response.alarms = soap_new_nss1__ArrayOfAlarmUpdate(soap);
  if (response.alarms == nullptr) return;
  response.alarms->AlarmUpdate.reserve(range.end - range.begin);
  for (size_t i = range.begin; i < range.end; ++i) {
    response.alarms->AlarmUpdate.push_back(*listed[i].alarm);
  }
}

#include "subscriptions/event_records.h"

#include <cstdio>
#include <exception>

#include "platform/multistate.h"
#include "platform/path.h"
#include "platform/vtx.h"

namespace {

constexpr const char* kSoftware = "/Software";
constexpr const char* kConfigurationChanged = "/Software/System Settings/Configuration Changed";

bool startsWith(const std::string& text, const char* prefix) {
  return text.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

std::string* newText(struct soap* soap, std::string text) {
  std::string* out = soap_new_std__string(soap);
  if (out != nullptr) *out = std::move(text);
  return out;
}

std::string* newText(struct soap* soap, const std::optional<std::string>& text) {
  return text ? newText(soap, *text) : nullptr;
}

const char* levelText(uint32_t level) {
  switch (level) {
    case 1:
      return "Informational Event";
    case 2:
      return "Cautionary Event";
    case 3:
      return "Critical Event";
    default:
      return "System Event";
  }
}

std::string decimal(long long value) {
  char buffer[24];
  snprintf(buffer, sizeof buffer, "%lld", value);
  return buffer;
}

void reportFailure(const char* converter, const toolkit::CEvent& record, const std::exception& e) {
  fprintf(stderr, "FAILURE (system) in %s(%s): %s \n", converter, record.source_path.c_str(),
          e.what());
}

}  // namespace

EventSource formatEventSource(toolkit::CCds& cds, const std::string& path_text,
                              bool already_normalized, const toolkit::CElement& value) {
  CPath path(path_text);
  if (!already_normalized) path.normalize();
  EventSource source;
  source.value = value.to_string();
  if (path.getPath() == "/") {
    source.path = "/";
    return source;
  }
  const std::string last = path.LopLastSubpath();
  const std::string node = path.getNodePath();
  if (last != "Value") {
    source.path = node + ":" + last;
    return source;
  }
  source.path = node;
  CCds_Multistate states(cds);
  const data_type_t type = value.get_type();
  if (type == DATA_TYPE_BOOL) {
    source.numeric = value.to_bool() ? "1" : "0";
    states.GetBoolStringValue(node, value.to_bool(), source.value);
  } else if (type == DATA_TYPE_INT || type == DATA_TYPE_UINT) {
    std::string key;
    if (states.IsMultistate(node, true, key)) {
      source.numeric = source.value;
      states.GetStringValue(key, value.to_int(), source.value);
    }
  }
  return source;
}

nss1__Event* fillEvent(struct soap* soap, toolkit::CCds& cds, const toolkit::CEvent& record,
                       nss1__Event* event) {
  bool structure_change = false;
  if (startsWith(record.source_path, kSoftware)) {
    structure_change =
        startsWith(record.source_path, kConfigurationChanged) && record.value.to_bool();
    if (!structure_change) {
      soap_delete(soap, event);
      return nullptr;
    }
  }
  event->EventId = record.event_id;
  event->SequenceIndex = record.sequence_index;
  if (structure_change) {
    event->EventType = nss1__EventType__StructureChanged;
    event->Description =
        newText(soap, record.message.empty() ? std::string("Device Node Structure Changed")
                                             : record.message);
    event->SourcePath = newText(soap, std::string("/"));
  } else {
    event->EventType = nss1__EventType__Event;
    EventSource source = formatEventSource(cds, record.source_path, true, record.value);
    event->SourcePath = newText(soap, std::move(source.path));
    event->Value = newText(soap, std::move(source.value));
    event->NumericValue = newText(soap, source.numeric);
    if (!record.message.empty()) {
      event->Description = newText(soap, record.message);
    } else if (record.kind == toolkit::CEvent::kKindSystemLevel) {
      event->Description = newText(soap, std::string(levelText(record.level_quality)));
    } else {
      event->Description = newText(soap, std::string());
    }
  }
  event->Time = vtx_UNIXtoVTXtime64(&record.timestamp);
  if (record.quality() != toolkit::CEvent::kQualityGood) {
    // A level-coded record's quality word holds its level: it is reported as good,
    // deliberately, rather than as a quality code it never had.
    event->Quality = newText(soap, record.kind == toolkit::CEvent::kKindSystemLevel
                                       ? decimal(toolkit::CEvent::kQualityGood)
                                       : decimal(record.quality()));
  }
  return event;
}

nss1__Event* buildEvent(struct soap* soap, toolkit::CCds& cds, const toolkit::CEvent& record) {
  nss1__Event* event = soap_new_nss1__Event(soap);
  if (event == nullptr) return nullptr;
  try {
    return fillEvent(soap, cds, record, event);
  } catch (const std::exception& e) {
    reportFailure("buildEvent", record, e);
    soap_delete(soap, event);
    return nullptr;
  }
}

nss1__AlarmUpdate* buildAlarmEvent(struct soap* soap, toolkit::CCds& cds,
                                   const toolkit::CEvent& record) {
  nss1__AlarmUpdate* alarm = soap_new_nss1__AlarmUpdate(soap);
  if (alarm == nullptr) return nullptr;
  try {
    if (fillEvent(soap, cds, record, alarm) == nullptr) return nullptr;
    alarm->EventType = nss1__EventType__Alarm;
    alarm->AckStatus = static_cast<nss1__AckStatus>(record.ack_status);
    alarm->ConditionPresent = record.condition_present;
    alarm->AutoClosing = record.auto_closing;
    if (!record.note.empty()) alarm->Note = newText(soap, record.note);
    if (record.base_priority != 0)
      alarm->BasePriority = newText(soap, decimal(record.base_priority));
    alarm->VariationLevel = record.variation_level;
    return alarm;
  } catch (const std::exception& e) {
    reportFailure("buildAlarmEvent", record, e);
    soap_delete(soap, alarm);
    return nullptr;
  }
}

nss1__PublishedValue* vtxPublishedValue(struct soap* soap, toolkit::CCds& cds,
                                        const toolkit::CEvent& record) {
  if (startsWith(record.source_path, kSoftware)) return nullptr;
  nss1__PublishedValue* published = soap_new_nss1__PublishedValue(soap);
  if (published == nullptr) return nullptr;
  try {
    EventSource source = formatEventSource(cds, record.source_path, true, record.value);
    published->Path = newText(soap, std::move(source.path));
    published->Value = newText(soap, std::move(source.value));
    published->NumericValue = newText(soap, source.numeric);
    published->Quality = record.quality();
    published->Time = vtx_UNIXtoVTXtime64(&record.timestamp);
    published->RealTime = false;
    published->Trend = true;
    return published;
  } catch (const std::exception& e) {
    reportFailure("vtxPublishedValue", record, e);
    soap_delete(soap, published);
    return nullptr;
  }
}

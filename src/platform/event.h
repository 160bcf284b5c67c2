// Event records: what the Data store's event queue carries and what the event logs hold.
#ifndef WSGATE_PLATFORM_EVENT_H
#define WSGATE_PLATFORM_EVENT_H

#include <sys/time.h>

#include <cstdint>
#include <string>

#include "platform/element.h"

namespace toolkit {

class CEvent {
 public:
  // Record kinds.
  static constexpr int32_t kKindDelta = 1;
  static constexpr int32_t kKindAlarm = 8;
  static constexpr int32_t kKindAcknowledgement = 16;
  static constexpr int32_t kKindSystemLevel = 256;  // level-coded system record
  static constexpr uint16_t kQualityGood = 192;

  int32_t kind = 0;
  std::string source_path;  // Data store path the record is about
  int32_t category = 0;     // category word that follows the source path
  CElement value;
  // Kind 256: the level (1 informational, 2 cautionary, 3 critical). Other kinds: the
  // quality code in the most significant 16 bits.
  uint32_t level_quality = 0;
  std::string message;
  uint64_t event_id = 0;
  uint32_t sequence_index = 0;
  timeval timestamp{0, 0};
  int32_t ack_status = 0;  // 0 not acknowledged, 1 acknowledged, 2 closed
  int32_t base_priority = 0;
  bool condition_present = false;
  std::string note;
  bool auto_closing = false;
  int32_t variation_level = 0;
  std::string source;  // the writer, as format_source_string makes it

  uint16_t quality() const { return static_cast<uint16_t>(level_quality >> 16); }
  void set_quality(uint16_t q) { level_quality = (level_quality & 0xffffu) | (uint32_t{q} << 16); }

  // "app:user@addr". A null part counts as empty.
  static void format_source_string(std::string& out, const char* app, const char* user,
                                   const char* addr);
};

}  // namespace toolkit

#endif  // WSGATE_PLATFORM_EVENT_H

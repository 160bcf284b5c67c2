// Display texts of multistate (enumeration) and boolean values.
//
// A node is multistate when its Value leaf is Integer or Unsigned and it has a
// "PossibleValues" leaf; the key text is that list. Items are "text" (value = position from
// 0) or "N=text" (explicit value N). A boolean node's texts come from a two-item
// "PossibleValues" (false first), else "false"/"true". The key "null" means "no list":
// booleans then accept "true"/"false" (any case) and "1"/"0", enumerations their decimal
// value.
#ifndef WSGATE_PLATFORM_MULTISTATE_H
#define WSGATE_PLATFORM_MULTISTATE_H

#include <string>

#include "platform/element.h"

namespace toolkit {
class CCds;
}

class CCds_Multistate {
 public:
  explicit CCds_Multistate(toolkit::CCds& cds) : cds_(cds) {}

  // True when the node at `node_path` is multistate; with `want_key` the key text is
  // filled.
  bool IsMultistate(const std::string& node_path, bool want_key, std::string& key);
  // The text of `value` under `key`; the decimal value when the key has no item for it.
  // Returns 0 when an item matched.
  int GetStringValue(const std::string& key, int value, std::string& text);
  // The node's own text for a boolean state.
  int GetBoolStringValue(const std::string& node_path, bool value, std::string& text);
  // The state whose text is `text` (exact, then without regard to case). Returns 0 on a
  // match, non-zero when none.
  int GetBoolFromString(const std::string& key, const std::string& text, bool& value);
  // The value whose item text is `text` (exact, then without regard to case). Returns 0 on
  // a match, non-zero when none.
  int GetEnumValue(const std::string& key, const std::string& text, int& value);
  // Converts a written text to `type` for the leaf at `path`. When the leaf's node has
  // "PossibleValues" (an enumeration for types 2/3, texts for type 1) the text must match
  // one of them: `multistate` is set and the result is non-zero when none matches. For any
  // other node `multistate` is false and the text is converted plainly (non-zero when it
  // does not read as `type`). `value` receives the converted value.
  int StringToMultiValue(const std::string& path, data_type_t type, const std::string& text,
                         toolkit::CElement& value, bool& multistate);

 private:
  toolkit::CCds& cds_;
};

#endif  // WSGATE_PLATFORM_MULTISTATE_H

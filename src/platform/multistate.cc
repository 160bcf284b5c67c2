#include "platform/multistate.h"

#include <strings.h>

#include <charconv>
#include <vector>

#include "platform/cds.h"
#include "platform/store_internal.h"

namespace {

// One item of a key text: "text" (its value is its position) or "N=text".
struct Item {
  int value;
  std::string text;
};

bool parseInt(std::string_view s, int& out) {
  if (s.empty()) return false;
  const char* end = s.data() + s.size();
  auto r = std::from_chars(s.data(), end, out);
  return r.ec == std::errc() && r.ptr == end;
}

// The key "null" (and an empty key) means that the node has no list.
bool hasList(const std::string& key) {
  return !key.empty() && key != "null";
}

std::vector<Item> parseKey(const std::string& key) {
  std::vector<std::string> parts;
  toolkit::CElement::split_string(key, parts);
  std::vector<Item> items;
  items.reserve(parts.size());
  for (size_t i = 0; i < parts.size(); ++i) {
    size_t eq = parts[i].find('=');
    int value = 0;
    if (eq != std::string::npos && parseInt(std::string_view(parts[i]).substr(0, eq), value)) {
      items.push_back({value, parts[i].substr(eq + 1)});
    } else {
      items.push_back({static_cast<int>(i), parts[i]});
    }
  }
  return items;
}

// The item whose text is `text`: an exact match first, then one without regard to case.
const Item* findText(const std::vector<Item>& items, const std::string& text) {
  for (const Item& item : items) {
    if (item.text == text) return &item;
  }
  for (const Item& item : items) {
    if (strcasecmp(item.text.c_str(), text.c_str()) == 0) return &item;
  }
  return nullptr;
}

const Item* findValue(const std::vector<Item>& items, int value) {
  for (const Item& item : items) {
    if (item.value == value) return &item;
  }
  return nullptr;
}

// The text of the node's PossibleValues leaf, or "" when it has none.
std::string possibleValues(toolkit::CCds& cds, std::string_view node) {
  api_status_t status;
  toolkit::CElement value;
  element_property_t prop;
  if (cds.get_leaf(store::leaf_path(node, "PossibleValues"), status, value, prop) != 0 ||
      status != API_STATUS_OK) {
    return std::string();
  }
  return value.to_string();
}

// A boolean's texts come from a list of exactly two items.
bool isBooleanList(const std::string& key) {
  return hasList(key) && parseKey(key).size() == 2;
}

}  // namespace

bool CCds_Multistate::IsMultistate(const std::string& node_path, bool want_key, std::string& key) {
  std::vector<std::string> paths = {store::leaf_path(node_path, "Value"),
                                    store::leaf_path(node_path, "PossibleValues")};
  std::vector<api_status_t> statuses;
  std::vector<toolkit::CElement> values;
  std::vector<element_property_t> props;
  if (cds_.get_leaves(paths, statuses, values, props) != 0) return false;
  data_type_t type = values[0].get_type();
  if (statuses[0] != API_STATUS_OK || (type != DATA_TYPE_INT && type != DATA_TYPE_UINT)) {
    return false;
  }
  if (statuses[1] != API_STATUS_OK) return false;
  std::string list = values[1].to_string();
  if (!hasList(list)) return false;
  if (want_key) key = std::move(list);
  return true;
}

int CCds_Multistate::GetStringValue(const std::string& key, int value, std::string& text) {
  if (hasList(key)) {
    std::vector<Item> items = parseKey(key);
    if (const Item* item = findValue(items, value)) {
      text = item->text;
      return 0;
    }
  }
  text = std::to_string(value);
  return 1;
}

int CCds_Multistate::GetBoolStringValue(const std::string& node_path, bool value,
                                        std::string& text) {
  std::string key = possibleValues(cds_, node_path);
  if (isBooleanList(key)) {
    std::vector<Item> items = parseKey(key);
    const Item* item = findValue(items, value ? 1 : 0);
    text = item != nullptr ? item->text : items[value ? 1 : 0].text;
    return 0;
  }
  text = value ? "true" : "false";
  return 0;
}

int CCds_Multistate::GetBoolFromString(const std::string& key, const std::string& text,
                                       bool& value) {
  if (!hasList(key)) {
    if (text == "1" || strcasecmp(text.c_str(), "true") == 0) {
      value = true;
      return 0;
    }
    if (text == "0" || strcasecmp(text.c_str(), "false") == 0) {
      value = false;
      return 0;
    }
    return 1;
  }
  std::vector<Item> items = parseKey(key);
  const Item* item = findText(items, text);
  if (item == nullptr) return 1;
  value = item->value != 0;
  return 0;
}

int CCds_Multistate::GetEnumValue(const std::string& key, const std::string& text, int& value) {
  if (!hasList(key)) return parseInt(text, value) ? 0 : 1;
  std::vector<Item> items = parseKey(key);
  const Item* item = findText(items, text);
  if (item == nullptr) return 1;
  value = item->value;
  return 0;
}

int CCds_Multistate::StringToMultiValue(const std::string& path, data_type_t type,
                                        const std::string& text, toolkit::CElement& value,
                                        bool& multistate) {
  multistate = false;
  const timeval stamp = value.get_time();
  std::string key;
  if (type == DATA_TYPE_BOOL || type == DATA_TYPE_INT || type == DATA_TYPE_UINT) {
    key = possibleValues(cds_, store::node_of(path));
  }
  bool use_list = type == DATA_TYPE_BOOL ? isBooleanList(key) : hasList(key);
  if (!use_list) {
    toolkit::CElement converted(text);
    if (converted.convert_type(type) != 0) return 1;
    value = converted;
    value.set_time(stamp);
    return 0;
  }
  multistate = true;
  if (type == DATA_TYPE_BOOL) {
    bool b = false;
    if (GetBoolFromString(key, text, b) != 0) return 1;
    value.set_bool(b);
  } else {
    int n = 0;
    if (GetEnumValue(key, text, n) != 0) return 1;
    if (type == DATA_TYPE_INT) {
      value.set_int(n);
    } else if (n >= 0) {
      value.set_uint(static_cast<uint32_t>(n));
    } else {
      return 1;
    }
  }
  value.set_time(stamp);
  return 0;
}

#include "tools/json_fields.h"

#include <algorithm>

#include "tools/format.h"

namespace cdstool {
namespace {

const Json* findField(const Json& object, const char* key) {
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

std::string quoted(const char* key) {
  return std::string("\"") + key + "\"";
}

// The text of "value"; numbers and booleans are accepted as well as the strings that export
// writes, so that hand-written documents can say "value": 1.5.
std::string valueText(const Json& object, const std::string& item) {
  const Json* value = findField(object, "value");
  if (value == nullptr) throw DocumentError(item + ": missing \"value\"");
  if (value->is_string()) return value->get<std::string>();
  if (value->is_boolean()) return value->get<bool>() ? "true" : "false";
  if (value->is_number()) return value->dump();
  throw DocumentError(item + ": \"value\" is not a string, number or boolean");
}

}  // namespace

Json parseJson(const std::string& text) {
  try {
    return Json::parse(text);
  } catch (const Json::parse_error& e) {
    // The library's text begins with its own tag in brackets; the rest says where.
    std::string what = e.what();
    size_t tag_end = what.find("] ");
    throw DocumentError(tag_end == std::string::npos ? what : what.substr(tag_end + 2));
  }
}

void checkObject(const Json& object, const std::vector<std::string>& allowed,
                 const std::string& item) {
  if (!object.is_object()) throw DocumentError(item + ": not an object");
  for (const auto& entry : object.items()) {
    if (std::find(allowed.begin(), allowed.end(), entry.key()) == allowed.end()) {
      throw DocumentError(item + ": unknown key \"" + entry.key() + "\"");
    }
  }
}

const Json& arrayField(const Json& object, const char* key, const std::string& item,
                       bool required) {
  static const Json kEmpty = Json::array();
  const Json* value = findField(object, key);
  if (value == nullptr) {
    if (required) throw DocumentError(item + ": missing " + quoted(key));
    return kEmpty;
  }
  if (!value->is_array()) throw DocumentError(item + ": " + quoted(key) + " is not an array");
  return *value;
}

std::string stringField(const Json& object, const char* key, const std::string& item,
                        bool required) {
  const Json* value = findField(object, key);
  if (value == nullptr) {
    if (required) throw DocumentError(item + ": missing " + quoted(key));
    return "";
  }
  if (!value->is_string()) throw DocumentError(item + ": " + quoted(key) + " is not a string");
  return value->get<std::string>();
}

int64_t integerField(const Json& object, const char* key, const std::string& item, int64_t min,
                     int64_t max, int64_t fallback) {
  const Json* value = findField(object, key);
  if (value == nullptr) return fallback;
  if (!value->is_number_integer()) {
    throw DocumentError(item + ": " + quoted(key) + " is not an integer");
  }
  bool fits;
  if (value->is_number_unsigned()) {  // every integer above zero reads as unsigned
    const uint64_t u = value->get<uint64_t>();
    fits = max >= 0 && u <= static_cast<uint64_t>(max) &&
           (min <= 0 || u >= static_cast<uint64_t>(min));
  } else {
    const int64_t v = value->get<int64_t>();
    fits = v >= min && v <= max;
  }
  if (!fits) {
    throw DocumentError(item + ": " + quoted(key) + " is out of range (" + std::to_string(min) +
                        ".." + std::to_string(max) + ")");
  }
  return value->get<int64_t>();
}

uint64_t unsignedField(const Json& object, const char* key, const std::string& item,
                       uint64_t fallback) {
  const Json* value = findField(object, key);
  if (value == nullptr) return fallback;
  if (!value->is_number_integer()) {
    throw DocumentError(item + ": " + quoted(key) + " is not an integer");
  }
  if (!value->is_number_unsigned()) {
    throw DocumentError(item + ": " + quoted(key) + " is out of range (0..18446744073709551615)");
  }
  return value->get<uint64_t>();
}

bool booleanField(const Json& object, const char* key, const std::string& item, bool fallback) {
  const Json* value = findField(object, key);
  if (value == nullptr) return fallback;
  if (!value->is_boolean()) throw DocumentError(item + ": " + quoted(key) + " is not a boolean");
  return value->get<bool>();
}

toolkit::CElement typedValue(const Json& object, const std::string& item) {
  std::string type_name = stringField(object, "type", item, true);
  data_type_t type = pcd_human_str_to_enum(type_name.c_str());
  if (type == DATA_TYPE_NONE) throw DocumentError(item + ": unknown type \"" + type_name + "\"");
  std::string text = valueText(object, item);
  toolkit::CElement value(text);
  if (value.convert_type(type) != 0) {
    throw DocumentError(item + ": \"" + text + "\" is not a valid " + typeName(type));
  }
  return value;
}

}  // namespace cdstool

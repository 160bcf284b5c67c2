#include "service/options.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/element.h"

namespace {

enum class Kind { kBool, kText, kPrecision };

struct Key {
  const char* name;
  Kind kind;
  bool RequestOptions::*flag;
  std::string RequestOptions::*text;
};

// Tested in this order; the first key that an item begins with wins.
const Key kKeys[] = {
    {"readback", Kind::kBool, &RequestOptions::readback, nullptr},
    {"errorString", Kind::kText, nullptr, &RequestOptions::errorString},
    {"errorPrefix", Kind::kText, nullptr, &RequestOptions::errorPrefix},
    {"locale", Kind::kText, nullptr, &RequestOptions::locale},
    {"writeSingleLocale", Kind::kBool, &RequestOptions::writeSingleLocale, nullptr},
    {"canonical", Kind::kBool, &RequestOptions::canonical, nullptr},
    {"precision", Kind::kPrecision, nullptr, nullptr},
    {"noEmptyArrays", Kind::kBool, &RequestOptions::noEmptyArrays, nullptr},
    {"persist", Kind::kBool, &RequestOptions::persist, nullptr},
};

void applyItem(const std::string& item, RequestOptions& options) {
  for (const Key& key : kKeys) {
    if (item.compare(0, strlen(key.name), key.name) != 0) continue;
    size_t equals = item.find('=');
    bool has_value = equals != std::string::npos;
    std::string value = has_value ? item.substr(equals + 1) : std::string();
    switch (key.kind) {
      case Kind::kBool:
        options.*key.flag = !has_value || value.find("false") == std::string::npos;
        break;
      case Kind::kText:
        options.*key.text = value;
        break;
      case Kind::kPrecision:
        if (has_value) {
          int precision = atoi(value.c_str());
          if (precision > 0) options.precision = precision;
        }
        break;
    }
    return;
  }
}

}  // namespace

RequestOptions parseOptions(const std::string* text) {
  RequestOptions options;
  if (text == nullptr) return options;
  std::vector<std::string> items;
  toolkit::CElement::split_string(*text, items);
  for (const std::string& item : items) applyItem(item, options);
  return options;
}

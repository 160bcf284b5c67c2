#include "values/array_read.h"

#include <cstdio>

#include "platform/element.h"
#include "platform/path.h"
#include "service/errors.h"
#include "values/value_read.h"

namespace {

constexpr const char* kArrayAttributes =
    "Attributes;Children;PossibleValues;WritableValues;.NotifyActions;.TrendTraits;.AlarmBatch";

bool beginsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// A one-item list that the array read left as an error text. Every text begins with an
// empty errorPrefix, so without one a one-item array counts too, deliberately.
bool isSingleErrorItem(const std::vector<std::string>& items, const RequestOptions& options) {
  return items.size() == 1 && beginsWith(items[0], options.errorPrefix);
}

}  // namespace

void readArray(toolkit::CCds& cds, const std::string* path_text, const RequestOptions& options,
               std::vector<std::string>& items) {
  items.clear();
  std::string text;
  if (path_text == nullptr) {
    formatError(kWsBadPathSyntax, "No Path provided", text, &options);
    items.push_back(std::move(text));
    return;
  }
  CPath path(*path_text);
  path.normalize();  // a malformed path is refused by the read below
  if (std::string(kArrayAttributes).find(path.getPathAttribute()) == std::string::npos) {
    formatError(kWsNotAnArray, "Invalid attribute for array", text, &options);
  } else {
    readValue(cds, *path_text, options, text);
  }
  const bool is_error = (!text.empty() && text[0] == '?') ||
                        (!options.errorPrefix.empty() && beginsWith(text, options.errorPrefix));
  if (is_error) {
    items.push_back(std::move(text));
    return;
  }
  toolkit::CElement::split_string(text, items);
}

void selectArrayRange(std::vector<std::string>& items, uint32_t index, uint32_t count,
                      const RequestOptions& options) {
  if (isSingleErrorItem(items, options)) return;
  const uint32_t n = static_cast<uint32_t>(items.size());
  if (index >= n) {
    items.assign(1, std::string());
    formatError(kWsIndexOutOfRange, nullptr, items[0], &options);
    return;
  }
  uint32_t last = index + count - 1;  // wraps for a count of 0, deliberately
  if (last > n) last = n - 1;
  uint32_t first = 0;  // the index, in the array as read, of items[0]
  if (index != 0 && index <= last) {
    items.erase(items.begin(), items.begin() + index);
    first = index;
  }
  while (!items.empty() && first + items.size() - 1 > last) items.pop_back();
}

std::string arraySizeText(const std::vector<std::string>& items, const RequestOptions& options) {
  if (isSingleErrorItem(items, options)) return items[0];
  // Ten characters were always enough for the arrays of a gateway.
  char buffer[10];
  snprintf(buffer, sizeof buffer, "%u", static_cast<unsigned>(items.size()));
  return buffer;
}

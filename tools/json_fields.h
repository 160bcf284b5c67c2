// Reading the `cds` tool's JSON documents (the store's interchange document, the event log
// and trend log imports): one error type that names the offending item, and field readers
// that check the JSON type and range of a value before anything is written.
#ifndef WSGATE_TOOLS_JSON_FIELDS_H
#define WSGATE_TOOLS_JSON_FIELDS_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/element.h"

namespace cdstool {

using Json = nlohmann::json;

// A fault in a document, already naming the item ("records[2]: unknown key \"kidn\"").
class DocumentError : public std::runtime_error {
 public:
  explicit DocumentError(const std::string& what) : std::runtime_error(what) {}
};

// Parses JSON text; a syntax error becomes a DocumentError saying where.
Json parseJson(const std::string& text);

// Throws unless `object` is a JSON object whose keys are all in `allowed`.
void checkObject(const Json& object, const std::vector<std::string>& allowed,
                 const std::string& item);

// The array at `key`; an empty array when the key is absent and not `required`.
const Json& arrayField(const Json& object, const char* key, const std::string& item,
                       bool required = false);

// The string at `key`; "" when the key is absent and not `required`.
std::string stringField(const Json& object, const char* key, const std::string& item,
                        bool required);

// The integer at `key`, which must lie in [min, max]; `fallback` when the key is absent.
// A number with a fraction, or of another JSON type, is refused.
int64_t integerField(const Json& object, const char* key, const std::string& item, int64_t min,
                     int64_t max, int64_t fallback);
// The same over the unsigned 64-bit range.
uint64_t unsignedField(const Json& object, const char* key, const std::string& item,
                       uint64_t fallback);
// The boolean at `key`; `fallback` when absent.
bool booleanField(const Json& object, const char* key, const std::string& item, bool fallback);

// The value of "type" (a type name, any case) and "value" (a string, number or boolean
// that converts to that type), both required: "\"x\" is not a valid Real" otherwise.
toolkit::CElement typedValue(const Json& object, const std::string& item);

}  // namespace cdstool

#endif  // WSGATE_TOOLS_JSON_FIELDS_H

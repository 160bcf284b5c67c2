// The request options: the "options" string that every operation carries, parsed afresh for
// each call.
#ifndef WSGATE_SERVICE_OPTIONS_H
#define WSGATE_SERVICE_OPTIONS_H

#include <string>

// errorString's default: the client gave none.
inline constexpr const char* kErrorStringUnset = "ZQK";

struct RequestOptions {
  bool readback = false;
  std::string errorString = kErrorStringUnset;
  std::string errorPrefix;
  std::string locale = "en-US";
  bool writeSingleLocale = false;
  bool canonical = false;
  int precision = 6;
  bool noEmptyArrays = false;
  bool persist = false;
};

// Parses `text` (null leaves every default). Items are separated by ";"; an item counts for
// the first key it begins with (so "canonicalX" is "canonical"). A bool without "=" is true,
// with "=" it is false exactly when "false" occurs after the "=" (so "=0" and "=no" are true,
// deliberately). A text key takes everything after the first "=", or "" without one.
// precision takes a decimal number above 0 after "="; anything else leaves it. Unknown keys
// and malformed values are ignored: parsing never fails.
RequestOptions parseOptions(const std::string* text);

#endif  // WSGATE_SERVICE_OPTIONS_H

#include "service/errors.h"

#include "service/options.h"

namespace {

// Codes 16 and 20 deliberately carry the same words; clients know both numbers.
const char* const kErrorTexts[] = {
    "0 Unspecified Error",
    "1 Not Authenticated",
    "2 Not Authorized",
    "3 Bad Options Syntax",
    "4 Option Not Supported",
    "5 Bad Option Value Format",
    "6 Option Out of Range",
    "7 Locale Not Supported",
    "8 Bad Path Syntax",
    "9 Node Not Found",
    "10 Attribute Not Found",
    "11 Illegal Attribute",
    "12 Bad Value Format",
    "13 Value Out of Range",
    "14 Index Out of Range",
    "15 Not Writable",
    "16 Write Failed",
    "17 No Paths Provided",
    "18 Requested Count is Zero",
    "19 Requested Interval is Zero",
    "20 Write Failed",
    "21 No History",
    "22 No Data Available",
    "23 Empty Array",
    "24 Not an Array",
    "25 Comm with Remote Device Failed",
    "26 The Readback Failed",
    "27 Could not set up subscription",
    "28 No match for SubscriberId",
    "29 Command Not Supported",
    "30 Wrong Version",
    "31 Device Busy or Not Available",
    "32 Handle Invalid or Expired",
    "33 Argument Invalid/Not Supported",
    "34 Result Too Big to Return",
};
constexpr int kErrorCount = sizeof kErrorTexts / sizeof kErrorTexts[0];

}  // namespace

const char* wsErrorText(int code) {
  return code >= 0 && code < kErrorCount ? kErrorTexts[code] : kErrorTexts[0];
}

void formatError(int code, const char* detail, std::string& out,
                 const RequestOptions* options) {
  out.clear();
  if (options != nullptr) {
    if (options->errorString.empty()) return;  // the client asked for silent errors
    if (options->errorString != kErrorStringUnset) {
      if (options->errorPrefix != "? ") out = options->errorPrefix;
      out += options->errorString;
      return;
    }
    out = options->errorPrefix;
  }
  out += "? ";
  out += wsErrorText(code);
  if (detail != nullptr && detail[0] != '\0') {
    out += " : ";
    out += detail;
  }
}

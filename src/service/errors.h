// The web-service error codes and the one formatter that turns a code and a detail into the
// result text of an item ("? 9 Node Not Found : Node does not exist").
#ifndef WSGATE_SERVICE_ERRORS_H
#define WSGATE_SERVICE_ERRORS_H

#include <string>

struct RequestOptions;

enum WsError {
  kWsUnspecified = 0,
  kWsNotAuthenticated = 1,
  kWsNotAuthorized = 2,
  kWsBadOptionsSyntax = 3,
  kWsOptionNotSupported = 4,
  kWsBadOptionValueFormat = 5,
  kWsOptionOutOfRange = 6,
  kWsLocaleNotSupported = 7,
  kWsBadPathSyntax = 8,
  kWsNodeNotFound = 9,
  kWsAttributeNotFound = 10,
  kWsIllegalAttribute = 11,
  kWsBadValueFormat = 12,
  kWsValueOutOfRange = 13,
  kWsIndexOutOfRange = 14,
  kWsNotWritable = 15,
  kWsWriteFailed = 16,
  kWsNoPathsProvided = 17,
  kWsCountIsZero = 18,
  kWsIntervalIsZero = 19,
  kWsWriteFailed20 = 20,
  kWsNoHistory = 21,
  kWsNoDataAvailable = 22,
  kWsEmptyArray = 23,
  kWsNotAnArray = 24,
  kWsRemoteDeviceFailed = 25,
  kWsReadbackFailed = 26,
  kWsSubscriptionFailed = 27,
  kWsNoSuchSubscriber = 28,
  kWsCommandNotSupported = 29,
  kWsWrongVersion = 30,
  kWsDeviceBusy = 31,
  kWsHandleInvalid = 32,
  kWsArgumentInvalid = 33,
  kWsResultTooBig = 34,
};

// The fixed text of `code` ("9 Node Not Found"); codes outside 0..34 give code 0's text.
const char* wsErrorText(int code);

// Replaces `out` with the error text. With `options`: an empty errorString leaves `out`
// empty; an errorString the client gave is the whole text (after errorPrefix, unless the
// prefix is exactly "? "); otherwise errorPrefix, "? ", the code's text and, for a non-empty
// `detail`, " : " and the detail. Without `options` the text starts with "? ".
void formatError(int code, const char* detail, std::string& out,
                 const RequestOptions* options);
inline void formatError(int code, const std::string& detail, std::string& out,
                        const RequestOptions* options) {
  formatError(code, detail.c_str(), out, options);
}

#endif  // WSGATE_SERVICE_ERRORS_H

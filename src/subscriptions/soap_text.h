// Texts of optional response elements, allocated in the request's SOAP context and freed
// with it: null stands for an absent element (and for a context out of memory).
#ifndef WSGATE_SUBSCRIPTIONS_SOAP_TEXT_H
#define WSGATE_SUBSCRIPTIONS_SOAP_TEXT_H

#include <optional>
#include <string>

#include "soapH.h"

inline std::string* soapText(struct soap* soap, std::string text) {
  std::string* out = soap_new_std__string(soap);
  if (out != nullptr) *out = std::move(text);
  return out;
}

inline std::string* soapText(struct soap* soap, const std::optional<std::string>& text) {
  return text ? soapText(soap, *text) : nullptr;
}

#endif  // WSGATE_SUBSCRIPTIONS_SOAP_TEXT_H

// The one locale of the gateway. The options are deliberately not parsed.
#include "soapH.h"

namespace {
constexpr const char* kLocale = "en-US";
}

int __nsc1__getDefaultLocale(struct soap* soap, _nsc1__getDefaultLocale*,
                             _nsc1__getDefaultLocaleResponse& response) {
  response.getDefaultLocaleResult = soap_new_std__string(soap);
  *response.getDefaultLocaleResult = kLocale;
  return SOAP_OK;
}

int __nsc1__getSupportedLocales(struct soap* soap, _nsc1__getSupportedLocales*,
                                _nsc1__getSupportedLocalesResponse& response) {
  response.getSupportedLocalesResult = soap_new_nsc1__ArrayOfString(soap);
  response.getSupportedLocalesResult->string.push_back(kLocale);
  return SOAP_OK;
}

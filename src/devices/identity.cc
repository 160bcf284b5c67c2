// Who the caller is and what time the gateway keeps.
#include <cstdlib>

#include "platform/vtx.h"
#include "soapH.h"

int nsqv__whoAmI(struct soap*, std::string*, nsqv__whoAmIResponse& response) {
  const char* user = getenv("REMOTE_USER");
  response.result = user != nullptr ? user : "";
  return SOAP_OK;
}

int nsqv__getLocalAndUtcTime(struct soap*, std::string*,
                             nsqv__getLocalAndUtcTimeResponse& response) {
  response.result.clear();
  response.utcTime = vtx_UTCtime64();
  response.localTime = vtx_Localtime64();
  const char* const* names = vtx_GetLocalTimeZoneName();
  const char* standard = names[0];
  const char* daylight = names[1];
  if (standard == nullptr || standard[0] == '\0') {
    response.timezone.clear();
  } else if (vtx_IsDaylightSavings() && daylight != nullptr && daylight[0] != '\0') {
    response.timezone = daylight;
  } else {
    response.timezone = standard;
  }
  return SOAP_OK;
}

// Advertised with its full message types but not provided: a fixed server fault.
int nsqv__getMinAvgMaxValues(struct soap*, std::string*, nsqv__ArrayOfString*, LONG64, LONG64,
                             enum nsqv__RatePeriod, nsqv__getMinAvgMaxValuesResponse&) {
  return SOAP_SVR_FAULT;
}

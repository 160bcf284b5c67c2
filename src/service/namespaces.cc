// The namespace table of the SOAP runtime. gSOAP declares every entry, in this order, on the
// envelope of each message it writes, and resolves the prefixes of incoming messages through
// it, so callers may bind any prefix of their own. The third column is the pattern accepted
// on input: SOAP 1.2 envelopes and encodings, and any year of XML Schema.
#include "soapH.h"

SOAP_NMAC struct Namespace namespaces[] = {
    {"SOAP-ENV", "http://schemas.xmlsoap.org/soap/envelope/", "http://www.w3.org/*/soap-envelope",
     nullptr},
    {"SOAP-ENC", "http://schemas.xmlsoap.org/soap/encoding/", "http://www.w3.org/*/soap-encoding",
     nullptr},
    {"xsi", "http://www.w3.org/2001/XMLSchema-instance", "http://www.w3.org/*/XMLSchema-instance",
     nullptr},
    {"xsd", "http://www.w3.org/2001/XMLSchema", "http://www.w3.org/*/XMLSchema", nullptr},
    {"nst1", "http://wsgate.local/ws/BACnetWSKiteTest", nullptr, nullptr},
    {"nss1", "http://wsgate.local/ws/BACnetWSKiteSubscriber", nullptr, nullptr},
    {"nsqv", "http://wsgate.local/ws/BACnetWSKiteQV", nullptr, nullptr},
    {"nsc3", "http://wsgate.local/ws/BACnetWSKiteC3", nullptr, nullptr},
    {"nsc1", "http://wsgate.local/ws/BACnetWSKite", nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr},
};

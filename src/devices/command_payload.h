// The XML texts of the device command queue: a command ("nsc3:sendCmd-s") as the data server
// stores it in a device's input queue, and a result ("nsc3:getDeviceCmdResultResponse") as a
// device handler stores it in the output queue. Both sides write and read them with the
// generated serializers, each text with a SOAP context of its own that lives for one call:
// a payload never touches the context of the request being served.
//
// Written form: an XML declaration, then the one element, which declares the namespace
// table's prefixes (the nsc3 one among them); its children are unqualified and
// enumerations are written by name. Read form: the same element with or without the
// declaration, its namespace bound to any prefix.
#ifndef WSGATE_DEVICES_COMMAND_PAYLOAD_H
#define WSGATE_DEVICES_COMMAND_PAYLOAD_H

#include <sstream>
#include <string>

#include "soapH.h"

// Element names of the two payloads.
inline constexpr const char* kCommandElement = "nsc3:sendCmd-s";
inline constexpr const char* kResultElement = "nsc3:getDeviceCmdResultResponse";

// One short-lived SOAP context for payloads. What read() builds lives in this context and
// is released with it; copy what must outlive it.
class CommandPayload {
 public:
  CommandPayload();
  ~CommandPayload();
  CommandPayload(const CommandPayload&) = delete;
  CommandPayload& operator=(const CommandPayload&) = delete;

  // Writes `value` as one element named `tag` into `text`. False (text unchanged) when the
  // runtime fails.
  template <class T>
  bool write(const T& value, const char* tag, std::string& text) {
    std::ostringstream out;
    soap_->os = &out;
    const bool ok = soap_begin_send(soap_) == SOAP_OK &&
                    (value.soap_serialize(soap_), value.soap_put(soap_, tag, "") == SOAP_OK) &&
                    soap_end_send(soap_) == SOAP_OK;
    soap_->os = nullptr;
    if (ok) text = out.str();
    return ok;
  }

  // Reads `text` as one element named `tag` into `value`. False when the text is larger or
  // more deeply nested than any payload (see withinLimits) or is not that element.
  template <class T>
  bool read(const std::string& text, const char* tag, T& value) {
    value.soap_default(soap_);
    if (!withinLimits(text)) return false;
    std::istringstream in(text);
    soap_->is = &in;
    const bool ok = soap_begin_recv(soap_) == SOAP_OK && value.soap_get(soap_, tag, nullptr) &&
                    soap_end_recv(soap_) == SOAP_OK;
    soap_->is = nullptr;
    return ok;
  }

 private:
  // The markup limits of a request, checked on the text before the runtime parses it.
  static bool withinLimits(const std::string& text);

  struct soap* soap_;
};

#endif  // WSGATE_DEVICES_COMMAND_PAYLOAD_H

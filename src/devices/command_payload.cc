#include "devices/command_payload.h"

#include <new>

#include "service/markup_guard.h"

namespace {

// A payload is a few elements deep and, with a long harmonics list, a few megabytes; these
// are the limits of a request (docs/limits.md), so that no payload costs more to parse than
// a request may.
constexpr size_t kMaxPayloadBytes = 16u << 20;
constexpr unsigned kMaxNesting = 64;
constexpr long kMaxTextLength = 1L << 20;
constexpr size_t kMaxListItems = 100000;
constexpr size_t kMaxAttributes = 64;

}  // namespace

CommandPayload::CommandPayload() : soap_(soap_new1(SOAP_XML_TREE)) {
  if (soap_ == nullptr) throw std::bad_alloc();
  soap_set_namespaces(soap_, namespaces);
  soap_->maxlevel = kMaxNesting;
  soap_->maxlength = kMaxTextLength;
  soap_->maxoccurs = kMaxListItems;
}

CommandPayload::~CommandPayload() {
  soap_destroy(soap_);
  soap_end(soap_);
  soap_free(soap_);  // ends the context (soap_done) and frees it
}

bool CommandPayload::withinLimits(const std::string& text) {
  if (text.size() > kMaxPayloadBytes) return false;
  MarkupGuard guard({kMaxAttributes, kMaxListItems, kMaxNesting});
  return guard.scan(text.data(), text.size()) == 0;
}

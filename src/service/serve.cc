#include "service/serve.h"

#include <cstdio>
#include <exception>

#include "soapH.h"

namespace {

// The deepest legal message is about a dozen elements deep; anything far deeper is an attack
// on the parser's stack and time.
constexpr unsigned kMaxNesting = 64;
// Longest text in one element or attribute: well above any path, value or command text.
constexpr long kMaxTextLength = 1L << 20;
// Longest list in one request (items of getValues, setValues and the like).
constexpr size_t kMaxListItems = 100000;
// Largest request body.
constexpr ULONG64 kMaxMessageBytes = 16UL << 20;

}  // namespace

void configureContext(struct soap* soap) {
  soap_set_namespaces(soap, namespaces);
  soap->maxlevel = kMaxNesting;
  soap->maxlength = kMaxTextLength;
  soap->maxoccurs = kMaxListItems;
  soap->recv_maxlength = kMaxMessageBytes;
}

int serveRequest(struct soap* soap) {
  soap_begin(soap);
  if (soap_begin_recv(soap)) {
    // Codes of 1000 and above are stop conditions, not errors worth a fault. The request's
    // data is deliberately left for the next soap_begin() to clear.
    if (soap->error < SOAP_STOP) soap_send_fault(soap);
    soap_closesock(soap);
    return 0;
  }
  try {
    if (soap_envelope_begin_in(soap) || soap_recv_header(soap) || soap_body_begin_in(soap) ||
        soap_serve_request(soap) || (soap->fserveloop && soap->fserveloop(soap))) {
      // No line end, deliberately: the next diagnostic continues this line.
      fputs("Failed in soap processing; ", stderr);
      soap_send_fault(soap);
    }
  } catch (const std::exception& e) {
    fputs("Exception in soap_serve processing: ", stderr);
    fprintf(stderr, "%s \n", e.what());
    soap_send_fault(soap);
  }
  soap_destroy(soap);
  soap_end(soap);
  return 0;
}

#include "main/serve.h"

#include <cstdio>
#include <exception>

#include "service/markup_guard.h"
#include "soapH.h"

namespace {

// The deepest legal message is about a dozen elements deep; anything far deeper is an attack
// on the parser's stack and time.
constexpr unsigned kMaxNesting = 64;
// Longest text in one element or attribute: well above any path, value or command text.
constexpr long kMaxTextLength = 1L << 20;
// Longest list in one request: child elements of one element, so the paths and values of
// setValues count together. The runtime applies it to SOAP-encoded arrays; the markup guard
// to everything else.
constexpr size_t kMaxListItems = 100000;
// Largest request body.
constexpr ULONG64 kMaxMessageBytes = 16UL << 20;
// Attributes of one start tag, namespace declarations included: a dozen in any real message.
constexpr size_t kMaxAttributes = 64;

// The request being received, for the receive callback: one request at a time.
struct GuardedRequest {
  MarkupGuard guard;
  size_t (*receive)(struct soap*, char*, size_t);
};
GuardedRequest* g_request = nullptr;

// Passes what the context's own receive callback delivers through the request's markup
// guard. A message past the guard's limits ends here, as if the caller had stopped sending.
size_t guardedReceive(struct soap* soap, char* buffer, size_t length) {
  size_t got = g_request->receive(soap, buffer, length);
  return g_request->guard.scan(buffer, got) == 0 ? got : 0;
}

// Sends the runtime's fault for the request's error. A broken limit is the cause of whatever
// the runtime made of the cut-off message (in the body it takes the missing rest for an
// unknown operation), so the fault names the limit instead.
void sendFault(struct soap* soap, const MarkupGuard& guard) {
  if (guard.error() != 0) {
    soap->error = guard.error();
  } else if (soap->recv_maxlength > 0 && soap->count > soap->recv_maxlength) {
    soap->error = SOAP_EOF;
  }
  soap_send_fault(soap);
}

// A request element marked xsi:nil would reach its operation as a null request. Refused
// here, before dispatch, so that no operation has to remember it: the runtime's fault for a
// nil element that must not be nil. An empty Body is left to the dispatcher, which answers
// it as an unknown operation.
int refuseNilRequest(struct soap* soap) {
  if (soap_peek_element(soap) != SOAP_OK) {
    soap->error = SOAP_OK;
    return SOAP_OK;
  }
  return soap->null ? soap->error = SOAP_NULL : SOAP_OK;
}

// There is deliberately no soap_begin() first: soap_begin_recv() starts the new message with
// the same clean-up (whatever the previous request left), and the runtime's clean-up clears
// large tables each time; doing it twice per request cost a fifth of the daemon's throughput.
void serveGuarded(struct soap* soap, const MarkupGuard& guard) {
  if (soap_begin_recv(soap)) {
    // Codes of 1000 and above are stop conditions, not errors worth a fault. The request's
    // data is deliberately left for the next request's start to clear. This daemon installs
    // no handler that stops a request, though: such a code can only be a "status" that the
    // runtime read from a body that does not start with markup ("x -8" gives 65528), so
    // that caller gets the fault for a malformed message rather than no answer at all.
    if (soap->error >= SOAP_STOP) {
      soap->error = SOAP_HTTP_ERROR;
      soap->status = 0;
    }
    sendFault(soap, guard);
    soap_closesock(soap);
    return;
  }
  try {
    if (soap_envelope_begin_in(soap) || soap_recv_header(soap) || soap_body_begin_in(soap) ||
        refuseNilRequest(soap) || soap_serve_request(soap) || (soap->fserveloop && soap->fserveloop(soap))) {
      // No line end, deliberately: the next diagnostic continues this line.
      fputs("Failed in soap processing; ", stderr);
      sendFault(soap, guard);
    }
  } catch (const std::exception& e) {
    fputs("Exception in soap_serve processing: ", stderr);
    fprintf(stderr, "%s \n", e.what());
    sendFault(soap, guard);
  }
  soap_destroy(soap);
  soap_end(soap);
}

}  // namespace

void configureContext(struct soap* soap) {
  soap_set_namespaces(soap, namespaces);
  // Our messages are literal: no element refers to another. Not resolving the encoding's id
  // and href references leaves out a class of hostile input: the fuzzer found an id attribute
  // that makes the runtime copy a string onto itself.
  soap_set_imode(soap, SOAP_XML_TREE);
  // Texts are UTF-8 on the wire and in the store alike: passed through as they are.
  // Without this the runtime takes a string's bytes as Latin-1 characters, so a "°C" the
  // store holds went out as "Â°C", and a "°C" received was stored as one Latin-1 byte.
  soap_set_mode(soap, SOAP_C_UTFSTRING);
  // The answer is kept whole and sent once with its length: without it the runtime writes
  // every answer twice, once only to count its bytes for Content-Length (3.5 % of a
  // whoAmI's CPU time, 4 % of a getValues of 1000 paths). An answer's content is in memory
  // before it is written anyway; its text now is too, until the request ends.
  soap_set_omode(soap, SOAP_IO_STORE);
  soap->maxlevel = kMaxNesting;
  soap->maxlength = kMaxTextLength;
  soap->maxoccurs = kMaxListItems;
  soap->recv_maxlength = kMaxMessageBytes;
}

int serveRequest(struct soap* soap) {
  GuardedRequest request{MarkupGuard({kMaxAttributes, kMaxListItems, kMaxNesting}), soap->frecv};
  g_request = &request;
  soap->frecv = guardedReceive;
  serveGuarded(soap, request.guard);
  soap->frecv = request.receive;
  g_request = nullptr;
  return 0;
}

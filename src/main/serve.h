// Serving one SOAP request on a context whose receive and send callbacks are already bound to
// the request's streams. Shared by the daemon's request loop and the fuzzer.
#ifndef WSGATE_MAIN_SERVE_H
#define WSGATE_MAIN_SERVE_H

struct soap;

// Prepares the process's context: the namespace table, and the runtime's limits on what a
// request may hold (nesting depth, text length, list length, message size).
void configureContext(struct soap* soap);

// Parses the envelope, dispatches the body element to its operation, and writes the response
// or the runtime's SOAP fault; then frees everything the request allocated. Always returns 0:
// the outcome has gone to the caller. The bytes from the context's receive callback pass a
// MarkupGuard first (service/markup_guard.h): a message past its limits is cut off there and
// answered with the runtime's fault for the broken limit.
int serveRequest(struct soap* soap);

#endif  // WSGATE_MAIN_SERVE_H

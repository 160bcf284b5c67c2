// The FastCGI request loop: the only loop, on the only thread.
#ifndef WSGATE_MAIN_REQUEST_LOOP_H
#define WSGATE_MAIN_REQUEST_LOOP_H

struct soap;

// The listening socket: WSGATED_SOCKET when set, else "/tmp/wsgated.socket".
const char* socketPath();

// Listens on the socket, serves one SOAP request at a time through `soap` (whose user
// pointer is the Server state) with the caller's REMOTE_USER and REMOTE_ADDR in the
// environment for the duration of the request, records each caller afterwards and sweeps
// the connections every 5 to 6 seconds. Returns 0 after a termination signal, -1 when the
// FastCGI library or the socket cannot be set up, or the fault routine's result when
// accepting a request fails.
int runRequestLoop(struct soap* soap);

#endif  // WSGATE_MAIN_REQUEST_LOOP_H

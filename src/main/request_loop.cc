#include "main/request_loop.h"

#include <fcgiapp.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "main/connections.h"
#include "main/server_state.h"
#include "platform/vtx.h"
#include "main/serve.h"
#include "soapH.h"

namespace {

constexpr int kBacklog = 64;
// Longest wait for a caller's next bytes, or for room to write the answer: a caller that
// stalls mid-request loses its request instead of holding the only thread.
constexpr time_t kStallSeconds = 10;
constexpr time_t kSelectSeconds = 5;
constexpr uint32_t kSweepInterval = 5;
// Caller identity fields hold at most 64 bytes of the web server's values.
constexpr size_t kIdentityBytes = 64;

struct CallerIdentity {
  char address[kIdentityBytes + 1] = {};
  char user[kIdentityBytes + 1] = {};
  bool https = false;
};

// Reads the request body from the current FastCGI request instead of a socket.
size_t receiveFromRequest(struct soap* soap, char* buffer, size_t length) {
  FCGX_Request* request = serverOf(soap).current_request;
  if (request == nullptr || request->in == nullptr || buffer == nullptr || length == 0) return 0;
  int got = FCGX_GetStr(buffer, static_cast<int>(length), request->in);
  return got > 0 ? static_cast<size_t>(got) : 0;
}

// Writes the response (CGI-style headers and envelope) to the current FastCGI request.
int sendToRequest(struct soap* soap, const char* data, size_t length) {
  FCGX_Request* request = serverOf(soap).current_request;
  if (request == nullptr || request->out == nullptr || data == nullptr) return SOAP_EOF;
  if (length == 0) return SOAP_OK;
  int put = FCGX_PutStr(data, static_cast<int>(length), request->out);
  return put < 0 || FCGX_GetError(request->out) != 0 ? SOAP_EOF : SOAP_OK;
}

// The runtime's header writer, which postHeader wraps.
int (*g_runtime_post_header)(struct soap*, const char*, const char*) = nullptr;

// Writes one response header, leaving out "Connection". A FastCGI responder's headers are CGI
// response headers, which carry no hop-by-hop fields, and the web server takes the runtime's
// "Connection: close" as a request to close its client's connection after every answer.
int postHeader(struct soap* soap, const char* key, const char* value) {
  if (key != nullptr && strcasecmp(key, "Connection") == 0) return SOAP_OK;
  return g_runtime_post_header(soap, key, value);
}

// Copies a FastCGI parameter into the environment and into `field` for this request.
void takeParameter(FCGX_Request& request, const char* name, char* field, const char* failure) {
  const char* value = FCGX_GetParam(name, request.envp);
  if (value != nullptr && setenv(name, value, 1) == 0) {
    strncpy(field, value, kIdentityBytes);
  } else {
    perror(failure);
  }
}

// Moves the listening socket to descriptor 0, where the FastCGI library expects it.
//
// The socket is non-blocking: a caller that select() reported may be gone by the time the
// loop accepts, and a blocking accept() would then wait for the next caller, with no
// termination check, sweep or watchdog ping meanwhile.
int listenOnDescriptorZero(const char* path) {
  int fd = FCGX_OpenSocket(path, kBacklog);
  if (fd == -1) return -1;
  if (fd != 0) {
    close(0);
    dup2(fd, 0);
    close(fd);
  }
  fcntl(0, F_SETFL, fcntl(0, F_GETFL) | O_NONBLOCK);
  fprintf(stderr, "FCGI app listening at socket %s [%d] \n", path, 0);
  return 0;
}

// Accepts the next connection, with bounded reads and writes, and lets the FastCGI library
// read the request from it. The library has no time-outs of its own, so a caller that stalls
// mid-request would otherwise hold the only thread. It reads from a request's open
// connection (keepConnection stops it from first closing that connection as a finished one);
// when the request cannot be read it drops the connection and tries to accept on the
// request's own listening socket, which is -1, so that it never accepts a connection without
// time-outs and gives up instead.
//
// Returns 0 with a request to serve; -EAGAIN when there is none (nobody waiting, or the
// caller's request could not be read); another negative errno when accepting failed.
int acceptRequest(FCGX_Request& request) {
  int fd = accept4(0, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED ? -EAGAIN : -errno;
  timeval stall{kStallSeconds, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &stall, sizeof stall);
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &stall, sizeof stall);
  request.ipcFd = fd;
  request.keepConnection = 1;
  return FCGX_Accept_r(&request) >= 0 ? 0 : -EAGAIN;
}

// Serves one accepted request with the caller's identity in the environment, finishes it,
// and only then records the caller, so the bookkeeping never delays a reply.
void serveAccepted(struct soap* soap, FCGX_Request& request) {
  CallerIdentity caller;
  takeParameter(request, "REMOTE_USER", caller.user, "Failed to get REMOTE_USER");
  takeParameter(request, "REMOTE_ADDR", caller.address, "Failed to get REMOTE_ADDR");
  const char* https = FCGX_GetParam("HTTPS", request.envp);
  caller.https = https != nullptr && strcmp(https, "on") == 0;

  serveRequest(soap);
  unsetenv("REMOTE_USER");
  unsetenv("REMOTE_ADDR");
  FCGX_Finish_r(&request);
  // A web server that asked to keep the connection gets it closed all the same: the loop
  // waits on the listening socket only, so a kept connection would never be read again.
  if (request.ipcFd >= 0) FCGX_Free(&request, 1);
  recordCaller(serverOf(soap), caller.address, caller.user, caller.https);
}

}  // namespace

const char* socketPath() {
  const char* path = getenv("WSGATED_SOCKET");
  return path != nullptr && path[0] != '\0' ? path : "/tmp/wsgated.socket";
}

int runRequestLoop(struct soap* soap) {
  if (FCGX_Init() < 0) return -1;
  if (listenOnDescriptorZero(socketPath()) != 0) return -1;

  FCGX_Request request;
  FCGX_InitRequest(&request, -1, 0);  // the loop accepts on descriptor 0 itself
  soap->frecv = receiveFromRequest;
  soap->fsend = sendToRequest;
  g_runtime_post_header = soap->fposthdr;
  soap->fposthdr = postHeader;

  Server& server = serverOf(soap);
  server.current_request = &request;
  uint32_t last_sweep = vtx_GetMonoTime(nullptr);
  server.next_sweep_time = last_sweep + 60;
  timeval timeout{kSelectSeconds, 0};
  fd_set readable;
  FD_ZERO(&readable);

  for (;;) {
    if (g_terminate) {
      fputs("Caught term signal, exiting soap_serve loop now...\n", stderr);
      FCGX_Free(&request, 1);
      return 0;
    }
    // The set is not cleared: select() leaves only ready descriptors in it, and 0 is the only
    // one. On Linux select() leaves the remaining time in `timeout`, so successive waits
    // shorten until the sweep resets it.
    FD_SET(0, &readable);
    if (select(1, &readable, nullptr, nullptr, &timeout) < 0) continue;

    if (FD_ISSET(0, &readable)) {
      server.current_request = &request;
      int accepted = acceptRequest(request);
      if (accepted == 0) {
        serveAccepted(soap, request);
      } else if (accepted != -EAGAIN) {
        fputs("Error in Accept(), exiting now...\n", stderr);
        soap->error = SOAP_EOF;
        int result = soap_send_fault(soap);
        FCGX_Free(&request, 1);
        return result;
      }
    }

    uint32_t now = vtx_GetMonoTime(nullptr);
    if ((timeout.tv_sec > 0 || timeout.tv_usec > 0) && now - last_sweep <= kSweepInterval) {
      continue;
    }
    timeout = {kSelectSeconds, 0};
    last_sweep = now;
    sweepConnections(server);
  }
}

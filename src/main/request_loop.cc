#include "main/request_loop.h"

#include <fcgiapp.h>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <strings.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "main/connections.h"
#include "main/fcgi_params.h"
#include "main/request_deadline.h"
#include "main/server_state.h"
#include "platform/vtx.h"
#include "main/serve.h"
#include "soapH.h"

namespace {

constexpr int kBacklog = 64;
// From accepting a connection to finishing its answer. Far above what any web server on
// this machine needs to hand over the largest request the daemon accepts.
constexpr long kRequestMilliseconds = 10000;
constexpr time_t kSelectSeconds = 5;
constexpr uint32_t kSweepInterval = 5;
// Caller identity fields hold at most 64 bytes of the web server's values.
constexpr size_t kIdentityBytes = 64;
// Connections accepted and not yet served. Those that have sent nothing wait here, costing
// nothing but a descriptor, instead of holding the only thread; when the set is full, the
// oldest silent one makes room, and when none is silent, the rest stay in the listening
// socket's queue.
constexpr size_t kMaxWaiting = 64;
// How much of a connection's start is looked at for its parameters; a web server's are a
// few kilobytes.
constexpr size_t kParamsWindow = 64 << 10;
// After a request that moved more bytes than this, the heap is handed back to the system:
// a long list leaves behind free memory that the allocator would otherwise keep for good
// (a getValues of 100,000 paths left the daemon at 21 MB resident, 9 MB before it).
constexpr size_t kTrimAfterBytes = 256 << 10;

struct CallerIdentity {
  char address[kIdentityBytes + 1] = {};
  char user[kIdentityBytes + 1] = {};
  bool https = false;
};

// A connection that has sent nothing yet, and when it must have finished.
struct Waiting {
  int fd;
  int64_t deadline_ms;
  bool fresh;  // accepted after the last select(), which therefore did not look at it
};

// Deadlines run on the real monotonic clock, as does the kernel timer that enforces them.
int64_t nowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Bytes of the current request's body and answer so far.
size_t g_request_bytes = 0;

// Reads the request body from the current FastCGI request instead of a socket.
size_t receiveFromRequest(struct soap* soap, char* buffer, size_t length) {
  FCGX_Request* request = serverOf(soap).current_request;
  if (request == nullptr || request->in == nullptr || buffer == nullptr || length == 0) return 0;
  int got = FCGX_GetStr(buffer, static_cast<int>(length), request->in);
  if (got <= 0) return 0;
  g_request_bytes += static_cast<size_t>(got);
  return static_cast<size_t>(got);
}

// Writes the response (CGI-style headers and envelope) to the current FastCGI request.
int sendToRequest(struct soap* soap, const char* data, size_t length) {
  FCGX_Request* request = serverOf(soap).current_request;
  if (request == nullptr || request->out == nullptr || data == nullptr) return SOAP_EOF;
  if (length == 0) return SOAP_OK;
  g_request_bytes += length;
  int put = FCGX_PutStr(data, static_cast<int>(length), request->out);
  return put < 0 || FCGX_GetError(request->out) != 0 ? SOAP_EOF : SOAP_OK;
}

// The runtime's header writer, which postHeader wraps.
int (*g_runtime_post_header)(struct soap*, const char*, const char*) = nullptr;

// Writes one response header, leaving out "Connection" and "Server". A FastCGI responder's
// headers are CGI response headers, which carry no hop-by-hop fields, and the web server
// takes the runtime's "Connection: close" as a request to close its client's connection
// after every answer. The runtime's "Server" would name its library to every caller; the
// web server's own stands.
int postHeader(struct soap* soap, const char* key, const char* value) {
  if (key != nullptr && (strcasecmp(key, "Connection") == 0 || strcasecmp(key, "Server") == 0)) {
    return SOAP_OK;
  }
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

// Opens the listening socket on descriptor 0, where the FastCGI library expects it. Made
// here rather than by FCGX_OpenSocket, which ends the whole process when it cannot bind,
// so that a socket that cannot be opened still ends start-up in order.
//
// The socket is non-blocking: a caller that select() reported may be gone by the time the
// loop accepts, and a blocking accept() would then wait for the next caller, with no
// termination check, sweep or watchdog ping meanwhile.
int listenOnDescriptorZero(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (strlen(path) >= sizeof address.sun_path) return -1;
  strcpy(address.sun_path, path);
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0) return -1;
  // A socket left by an earlier run is replaced; any other file at the path stays (a
  // mistaken path must not delete a store), and the bind below then fails.
  struct stat existing;
  if (lstat(path, &existing) == 0 && S_ISSOCK(existing.st_mode)) unlink(path);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(fd, kBacklog) != 0) {
    close(fd);
    return -1;
  }
  if (fd != 0) {
    close(0);
    dup2(fd, 0);
    close(fd);
  }
  fcntl(0, F_SETFL, fcntl(0, F_GETFL) | O_NONBLOCK);
  fprintf(stderr, "FCGI app listening at socket %s [%d] \n", path, 0);
  return 0;
}

// Answers a request whose caller identity cannot be trusted, without serving it.
void refuseRequest(struct soap* soap) {
  soap_begin(soap);
  soap_sender_fault(soap, "Bad caller identity",
                    "REMOTE_USER or REMOTE_ADDR holds a NUL character");
  soap_send_fault(soap);
  soap_destroy(soap);
  soap_end(soap);
}

// Reads whatever the caller sent after the envelope, up to the end of its input, which has
// all arrived already: usually only the end record, in the library's buffer. False when
// the input ended otherwise (an error).
bool readToEnd(FCGX_Stream* in) {
  char rest[4096];
  while (FCGX_GetStr(rest, sizeof rest, in) > 0) {
  }
  return FCGX_HasSeenEOF(in) != 0 && FCGX_GetError(in) == 0;
}

// Serves one request with the caller's identity in the environment, finishes it, and only
// then records the caller, so the bookkeeping never delays a reply. `arrived`: the whole
// input was there before the request was read.
void serveAccepted(struct soap* soap, FCGX_Request& request, bool refused, bool arrived) {
  Server& server = serverOf(soap);
  CallerIdentity caller;
  takeParameter(request, "REMOTE_USER", caller.user, "Failed to get REMOTE_USER");
  takeParameter(request, "REMOTE_ADDR", caller.address, "Failed to get REMOTE_ADDR");
  const char* https = FCGX_GetParam("HTTPS", request.envp);
  caller.https = https != nullptr && strcmp(https, "on") == 0;
  server.caller.user = caller.user;
  server.caller.address = caller.address;
  server.caller.https = caller.https;

  if (refused) {
    refuseRequest(soap);
  } else {
    serveRequest(soap);
  }
  unsetenv("REMOTE_USER");
  unsetenv("REMOTE_ADDR");
  server.caller = Caller();
  // The library's close lingers (shutdown, then a wait for the caller to close its end, a
  // read) so that input still unread cannot cut the answer short. When the whole input had
  // arrived, reading its rest cannot wait and leaves nothing unread, and a plain close
  // saves the caller's round trip and three system calls (a quarter of the samples of a
  // whoAmI). Input still arriving is not waited for: the answer goes first.
  const bool read_to_end = arrived && request.in != nullptr && readToEnd(request.in);
  if (read_to_end) request.keepConnection = 1;
  FCGX_Finish_r(&request);
  releaseRequestDeadline();
  if (read_to_end && request.ipcFd >= 0) {
    close(request.ipcFd);
    request.ipcFd = -1;
  }
  // A web server that asked to keep the connection gets it closed all the same: the loop
  // waits on the listening socket only, so a kept connection would never be read again.
  if (request.ipcFd >= 0) FCGX_Free(&request, 1);
  if (!refused) recordCaller(server, caller.address, caller.user, caller.https);
  if (g_request_bytes > kTrimAfterBytes) malloc_trim(0);
  g_request_bytes = 0;
}

// The start of the connection being served, as far as it has been peeked at.
unsigned char g_window[kParamsWindow];

// Peeks at the start of connection `fd` into g_window without waiting: the number of bytes
// there (> 0), 0 when it has sent nothing yet, -1 when it hung up or failed.
ssize_t peekStart(int fd) {
  ssize_t got = recv(fd, g_window, sizeof g_window, MSG_PEEK | MSG_DONTWAIT);
  if (got > 0) return got;
  return got < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : -1;
}

// Serves the request on connection `fd`, whose first `peeked` bytes are in g_window, under
// the request's deadline. Its parameters are looked at first (waiting for them within the
// deadline); then the FastCGI library reads them from the connection itself (keepConnection
// stops it from first closing that connection as a finished one). When the request cannot
// be read, the library drops the connection and tries to accept on the request's own
// listening socket, which is -1, so that it never accepts a connection without a deadline
// and gives up instead. Closes `fd` in every case.
void serveConnection(struct soap* soap, FCGX_Request& request, int fd, int64_t deadline_ms,
                     ssize_t peeked) {
  armRequestDeadline(fd, static_cast<long>(deadline_ms - nowMs()));
  ParamsCheck check = ParamsCheck::kIncomplete;
  ssize_t got = peeked;
  for (;;) {
    if (got > 0) check = checkParams(g_window, static_cast<size_t>(got));
    if (check != ParamsCheck::kIncomplete || static_cast<size_t>(got) == sizeof g_window ||
        nowMs() >= deadline_ms) {
      break;
    }
    // Parameters still arriving: wait a moment for more, or for the caller to hang up
    // (then no more will come). Waiting for input instead would return at once, since
    // what has arrived is still unread.
    pollfd hangup{fd, POLLRDHUP, 0};
    if (poll(&hangup, 1, 2) > 0) break;
    got = recv(fd, g_window, sizeof g_window, MSG_PEEK | MSG_DONTWAIT);
    if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) break;  // gone
  }
  if (check == ParamsCheck::kIncomplete) {
    disarmRequestDeadline();
    close(fd);
    return;
  }
  request.ipcFd = fd;
  request.keepConnection = 1;
  if (FCGX_Accept_r(&request) < 0) {
    disarmRequestDeadline();
    return;
  }
  const bool arrived = got > 0 && inputComplete(g_window, static_cast<size_t>(got));
  serveAccepted(soap, request, check == ParamsCheck::kRefused, arrived);
}

// What the first bytes of connection `fd` say without waiting: 1 it sent something, 0 it
// sent nothing yet, -1 it hung up or failed.
int firstBytes(int fd) {
  char byte;
  ssize_t got = recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  if (got > 0) return 1;
  return got < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : -1;
}

// Closes the oldest waiting connection that has sent nothing (or hung up). False when every
// one has a request to serve.
bool dropSilent(std::vector<Waiting>& waiting) {
  for (auto it = waiting.begin(); it != waiting.end(); ++it) {
    if (firstBytes(it->fd) <= 0) {
      close(it->fd);
      waiting.erase(it);
      return true;
    }
  }
  return false;
}

// Accepts one caller queued on the listening socket into `waiting`, when there is room.
// One a turn: the next select() reports any others at once, and accepting until the queue
// is empty would cost a failed accept per request. Returns 0, or a negative errno when
// accepting failed.
int acceptWaiting(std::vector<Waiting>& waiting) {
  if (waiting.size() == kMaxWaiting && !dropSilent(waiting)) return 0;
  int fd = accept4(0, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) {
    return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED ? 0 : -errno;
  }
  if (fd >= FD_SETSIZE) {  // select() cannot wait on it
    close(fd);
    return 0;
  }
  waiting.push_back({fd, nowMs() + kRequestMilliseconds, true});
  return 0;
}

// Takes from `waiting` the first connection that has sent its first bytes, among those
// select() found readable and those accepted since, and peeks them into g_window (their
// count in `peeked`); closes those that hung up or are past their deadline. Returns its
// descriptor, or -1 when none is ready.
int takeReady(std::vector<Waiting>& waiting, const fd_set& readable, int64_t& deadline_ms,
              ssize_t& peeked) {
  const int64_t now = nowMs();
  int ready = -1;
  for (size_t i = 0; i < waiting.size();) {
    Waiting& w = waiting[i];
    ssize_t state = 0;
    if (ready < 0 && (w.fresh || FD_ISSET(w.fd, &readable))) state = peekStart(w.fd);
    w.fresh = false;
    if (state > 0) {
      ready = w.fd;
      peeked = state;
      deadline_ms = w.deadline_ms;
    } else if (state < 0 || w.deadline_ms <= now) {
      close(w.fd);
    } else {
      ++i;
      continue;
    }
    waiting.erase(waiting.begin() + i);
  }
  return ready;
}

}  // namespace

const char* socketPath() {
  const char* path = getenv("WSGATED_SOCKET");
  return path != nullptr && path[0] != '\0' ? path : "/tmp/wsgated.socket";
}

int runRequestLoop(struct soap* soap) {
  if (FCGX_Init() < 0 || !installRequestDeadline()) return -1;
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
  std::vector<Waiting> waiting;
  waiting.reserve(kMaxWaiting);

  for (;;) {
    if (g_terminate) {
      fputs("Caught term signal, exiting soap_serve loop now...\n", stderr);
      for (const Waiting& w : waiting) close(w.fd);
      FCGX_Free(&request, 1);
      return 0;
    }
    // The timeout is not reset here: on Linux select() leaves the remaining time in it, so
    // successive waits shorten until the sweep resets it.
    FD_ZERO(&readable);
    FD_SET(0, &readable);
    int top = 0;
    for (const Waiting& w : waiting) {
      FD_SET(w.fd, &readable);
      top = std::max(top, w.fd);
    }
    if (select(top + 1, &readable, nullptr, nullptr, &timeout) < 0) {
      // Perhaps the released deadline of the last request, expiring while the loop is idle.
      disarmRequestDeadline();
      continue;
    }

    if (FD_ISSET(0, &readable)) {
      int failed = acceptWaiting(waiting);
      if (failed != 0) {
        fputs("Error in Accept(), exiting now...\n", stderr);
        for (const Waiting& w : waiting) close(w.fd);
        soap->error = SOAP_EOF;
        int result = soap_send_fault(soap);
        FCGX_Free(&request, 1);
        return result;
      }
    }
    int64_t deadline_ms = 0;
    ssize_t peeked = 0;
    const int fd = takeReady(waiting, readable, deadline_ms, peeked);
    if (fd >= 0) {
      server.current_request = &request;
      serveConnection(soap, request, fd, deadline_ms, peeked);
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

// The daemon's request path in one process, without FastCGI: a temporary Data store holding
// the demo gateway, the demo's log and trend history beside it, the Server state on them, and one SOAP context configured by the daemon's
// own configureContext. Each input is served by the daemon's serveRequest and dispatch, with
// the caller's identity in the environment as the request loop puts it there. The request
// fuzzer and the test that replays its corpus and findings both serve through it.
//
// Input format, shared by the fuzzer, its seed corpus and the regression files: the first
// byte chooses the caller, the rest is the request body as the web server forwards it.
//   first byte % 4    0 anonymous (no REMOTE_USER), 1 "guest", 2 "operator", 3 "admin"
//   first byte & 0x80 set: after ((byte & 0x7f) >> 2) store calls succeed, one call fails,
//                          and the same for the calls of the log libraries
// The seed files begin with the digits "0" to "3", so that they stay readable.
//
// The demo's rights are kept: "admin" may reset, and a reset answers its failure text, as
// the binaries that serve through the harness link the fake reboot program (fake_reboot.h).
// The test clock is set for the life of the harness, so that the retries of log reads
// never wait.
#ifndef WSGATE_TESTS_FUZZ_REQUEST_HARNESS_H
#define WSGATE_TESTS_FUZZ_REQUEST_HARNESS_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct Server;
struct soap;

namespace wsgate_fuzz {

// Empty when `answer` is a whole CGI-style response: a "Status:" line first, the headers,
// and a body of exactly the Content-Length they announce; otherwise what is wrong with it.
std::string answerDefect(const std::string& answer);

class RequestHarness {
 public:
  // Builds the demo store in a new temporary directory (CDS_PATH points at it for the life
  // of the harness) and opens the Server state on it. Throws std::runtime_error when the
  // store cannot be made.
  RequestHarness();
  // Closes the store, removes the directory and puts CDS_PATH back.
  ~RequestHarness();
  RequestHarness(const RequestHarness&) = delete;
  RequestHarness& operator=(const RequestHarness&) = delete;

  // Serves one input (format above) and returns everything the daemon would have written
  // to the web server: the CGI-style headers and the envelope. REMOTE_USER and REMOTE_ADDR
  // are unset again afterwards, and no store failure stays armed.
  std::string serve(const uint8_t* data, size_t size);
  std::string serve(const std::string& input) {
    return serve(reinterpret_cast<const uint8_t*>(input.data()), input.size());
  }

  // Puts the store back as it was built (writes of earlier inputs are undone).
  void restoreStore();

 private:
  static size_t receive(struct soap* soap, char* buffer, size_t length);
  static int send(struct soap* soap, const char* data, size_t length);

  std::string dir_;
  std::string store_path_;
  std::string pristine_path_;
  std::string old_cds_path_;
  bool had_cds_path_ = false;
  std::unique_ptr<Server> server_;
  struct soap* soap_ = nullptr;
  const uint8_t* input_ = nullptr;
  size_t input_left_ = 0;
  std::string output_;
};

}  // namespace wsgate_fuzz

#endif  // WSGATE_TESTS_FUZZ_REQUEST_HARNESS_H

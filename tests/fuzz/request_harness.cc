#include "request_harness.h"

#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "main/server_state.h"
#include "platform/cds.h"
#include "platform/log.h"
#include "platform/vtx.h"
#include "main/serve.h"
#include "soapH.h"
#include "tools/demo.h"
#include "tools/demo_history.h"
#include "tools/interchange.h"

namespace wsgate_fuzz {
namespace {

const char* const kUsers[] = {nullptr, "guest", "operator", "admin"};

// The context's user pointer belongs to the Server state, as in the daemon, so the stream
// callbacks find their harness here; there is only ever one.
RequestHarness* g_active = nullptr;

std::string makeTempDir() {
  const char* tmp = getenv("TMPDIR");
  std::string pattern =
      std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/wsgate-fuzz-XXXXXX";
  if (mkdtemp(&pattern[0]) == nullptr) throw std::runtime_error("mkdtemp failed: " + pattern);
  return pattern;
}

void buildDemoStore() {
  pcd_handle_t handle = pcd_init(0);
  if (handle == nullptr) throw std::runtime_error(std::string("store: ") + pcd_last_error());
  toolkit::CCds cds(handle);
  try {
    cdstool::Document doc;
    cdstool::buildDemo(doc);
    cdstool::importDocument(cds, doc, "fuzz");
  } catch (...) {
    pcd_close(handle);
    throw;
  }
  pcd_close(handle);
}

}  // namespace

std::string answerDefect(const std::string& answer) {
  if (answer.rfind("Status: ", 0) != 0) return "no Status line first";
  const size_t end = answer.find("\r\n\r\n");
  if (end == std::string::npos) return "the headers do not end";
  const std::string headers = answer.substr(0, end + 2);
  const std::string kLength = "\r\nContent-Length: ";
  const size_t at = headers.find(kLength);
  if (at == std::string::npos) return "no Content-Length";
  const unsigned long length = strtoul(headers.c_str() + at + kLength.size(), nullptr, 10);
  const size_t body = answer.size() - end - 4;
  if (length != body) {
    return "Content-Length " + std::to_string(length) + " but a body of " + std::to_string(body) +
           " bytes";
  }
  return "";
}

RequestHarness::RequestHarness() : dir_(makeTempDir()) {
  store_path_ = dir_ + "/cds.db";
  pristine_path_ = dir_ + "/pristine.db";
  const char* old = getenv("CDS_PATH");
  had_cds_path_ = old != nullptr;
  if (had_cds_path_) old_cds_path_ = old;
  setenv("CDS_PATH", store_path_.c_str(), 1);
  // Closing the only connection folds the journal into the file, so one copy is the store.
  buildDemoStore();
  std::filesystem::copy_file(store_path_, pristine_path_);

  g_daemon_mode = false;
  server_ = std::make_unique<Server>();
  server_->cds.set_handle(pcd_init(0));
  if (!server_->cds.connected()) throw std::runtime_error("store: cannot reopen " + store_path_);
  // The log databases hold the demo's history in the temporary directory, never in the
  // current one.
  cdstool::writeDemoHistory(dir_, false);
  const std::vector<std::string> logs = cdstool::demoLogFiles(dir_);
  server_->logs.delta_log_path = logs[0];
  server_->logs.event_log_path = logs[1];
  server_->logs.system_log_path = logs[2];
  server_->logs.trend_log_path = logs[3];
  // The retries of log reads then wait on the test clock, not for real.
  vtx_SetTestClock(1700000000000, 1000);

  soap_ = soap_new();
  soap_->user = static_cast<ServiceContext*>(server_.get());
  configureContext(soap_);
  soap_->frecv = receive;
  soap_->fsend = send;
  g_active = this;
}

RequestHarness::~RequestHarness() {
  g_active = nullptr;
  vtx_ClearTestClock();
  soap_destroy(soap_);
  soap_end(soap_);
  soap_free(soap_);
  server_.reset();
  if (had_cds_path_) {
    setenv("CDS_PATH", old_cds_path_.c_str(), 1);
  } else {
    unsetenv("CDS_PATH");
  }
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

std::string RequestHarness::serve(const uint8_t* data, size_t size) {
  const uint8_t selector = size > 0 ? data[0] : 0;
  input_ = size > 0 ? data + 1 : data;
  input_left_ = size > 0 ? size - 1 : 0;
  output_.clear();

  const char* user = kUsers[selector % 4];
  if (user != nullptr) setenv("REMOTE_USER", user, 1);
  setenv("REMOTE_ADDR", "127.0.0.1", 1);
  pcd_handle_t store = server_->cds.handle();
  if (selector & 0x80) {
    pcd_inject_failure(store, (selector & 0x7f) >> 2, 1);
    pcd_log_inject_failure((selector & 0x7f) >> 2, 1);
  }

  serveRequest(soap_);

  pcd_inject_failure(store, 0, 0);
  pcd_log_inject_failure(0, 0);
  unsetenv("REMOTE_USER");
  unsetenv("REMOTE_ADDR");
  input_ = nullptr;
  input_left_ = 0;
  return output_;
}

void RequestHarness::restoreStore() {
  pcd_close(server_->cds.handle());
  server_->cds.set_handle(nullptr);
  std::error_code ignored;
  std::filesystem::remove(store_path_ + "-wal", ignored);
  std::filesystem::remove(store_path_ + "-shm", ignored);
  std::filesystem::copy_file(pristine_path_, store_path_,
                             std::filesystem::copy_options::overwrite_existing);
  server_->cds.set_handle(pcd_init(0));
  if (!server_->cds.connected()) throw std::runtime_error("store: cannot reopen " + store_path_);
}

size_t RequestHarness::receive(struct soap*, char* buffer, size_t length) {
  RequestHarness* self = g_active;
  size_t n = std::min(length, self->input_left_);
  if (n == 0) return 0;
  memcpy(buffer, self->input_, n);
  self->input_ += n;
  self->input_left_ -= n;
  return n;
}

int RequestHarness::send(struct soap*, const char* data, size_t length) {
  g_active->output_.append(data, length);
  return SOAP_OK;
}

}  // namespace wsgate_fuzz

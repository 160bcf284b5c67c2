// A SOAP context for tests that call converters or service functions directly: objects they
// allocate in it are freed when the test's context ends. `context` (when given) is what
// serviceContext(soap) returns.
#ifndef WSGATE_TESTS_UNIT_SOAP_FIXTURE_H
#define WSGATE_TESTS_UNIT_SOAP_FIXTURE_H

#include "service/context.h"
#include "soapH.h"

namespace wsgate_test {

class SoapContext {
 public:
  explicit SoapContext(ServiceContext* context = nullptr) : soap_(soap_new()) {
    soap_->user = context;
  }
  SoapContext(const SoapContext&) = delete;
  SoapContext& operator=(const SoapContext&) = delete;
  ~SoapContext() {
    soap_destroy(soap_);
    soap_end(soap_);
    soap_free(soap_);
  }

  struct soap* get() const {
    return soap_;
  }

 private:
  struct soap* soap_;
};

}  // namespace wsgate_test

#endif  // WSGATE_TESTS_UNIT_SOAP_FIXTURE_H

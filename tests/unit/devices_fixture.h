// The device model's tests: the values fixture's small gateway (values_fixture.h), a SOAP
// context whose service context is that store, so that the service functions can be called
// as the dispatcher calls them, and a helper to add devices.
#ifndef WSGATE_TESTS_UNIT_DEVICES_FIXTURE_H
#define WSGATE_TESTS_UNIT_DEVICES_FIXTURE_H

#include <string>

#include "soap_fixture.h"
#include "values_fixture.h"

namespace wsgate_test {

class DevicesTest : public ValuesTest {
 protected:
  void SetUp() override {
    ValuesTest::SetUp();
    context_.cds.set_handle(cds.handle());
  }
  void TearDown() override {
    context_.cds.set_handle(nullptr);
    ValuesTest::TearDown();
  }

  // A device node: NodeType "Device", and the other leaves unless negative or null. Every
  // leaf is stamped kStamp.
  void device(const std::string& path, const char* display_name, int quality, int change_count) {
    const std::string prefix = path == "/" ? "" : path;
    node(path);
    leaf(prefix + "/NodeType", toolkit::CElement("Device"));
    if (display_name != nullptr) leaf(prefix + "/DisplayName", toolkit::CElement(display_name));
    if (quality >= 0) leaf(prefix + "/.Quality", typed("Unsigned", std::to_string(quality)));
    if (change_count < 0) return;
    node(prefix + "/sDevChangeCount");
    leaf(prefix + "/sDevChangeCount/Value", typed("Integer", std::to_string(change_count)));
  }

 private:
  ServiceContext context_;
  SoapContext soap_context_{&context_};

 protected:
  struct soap* soap = soap_context_.get();
};

}  // namespace wsgate_test

#endif  // WSGATE_TESTS_UNIT_DEVICES_FIXTURE_H

// The device model's tests: the values fixture's small gateway (values_fixture.h), a SOAP
// context whose service context is that store, so that the service functions can be called
// as the dispatcher calls them, and helpers to add devices and command areas.
//
//   TEST_F(DevicesTest, Something) {
//     device("/Dev1", "Pump", 192, 5);
//     nsqv__getDeviceTreeResponse response;
//     nsqv__getDeviceTree(soap, nullptr, &prefix, true, response);
//   }
#ifndef WSGATE_TESTS_UNIT_DEVICES_FIXTURE_H
#define WSGATE_TESTS_UNIT_DEVICES_FIXTURE_H

#include <string>
#include <vector>

#include "service/context.h"
#include "soapH.h"
#include "values_fixture.h"

namespace wsgate_test {

class DevicesTest : public ValuesTest {
 protected:
  void SetUp() override {
    ValuesTest::SetUp();
    context_.cds.set_handle(cds.handle());
    soap = soap_new();
    soap->user = &context_;
  }
  void TearDown() override {
    soap_destroy(soap);
    soap_end(soap);
    soap_free(soap);
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
    toolkit::CElement v;
    if (quality >= 0) {
      v.set_uint(static_cast<uint32_t>(quality));
      leaf(prefix + "/.Quality", v);
    }
    if (change_count >= 0) {
      node(prefix + "/sDevChangeCount");
      v.set_int(change_count);
      leaf(prefix + "/sDevChangeCount/Value", v);
    }
  }

  struct soap* soap = nullptr;

 private:
  ServiceContext context_;
};

}  // namespace wsgate_test

#endif  // WSGATE_TESTS_UNIT_DEVICES_FIXTURE_H

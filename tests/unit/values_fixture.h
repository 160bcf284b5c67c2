// A small gateway for the value services' tests: points of each kind, rights for a reader,
// a writer and a user who may read nothing below /Secret, and helpers to act as a user.
//
//   /Temp    Real 21.5, Writable true, Minimum/Maximum, alarm limits, .AlarmOnValue
//   /Fan     Boolean false with PossibleValues "Off;On" (and the same WritableValues)
//   /Online  Boolean true without texts, Writable true
//   /Mode    Unsigned 1 with PossibleValues "Off;Auto;Manual" (and WritableValues), Writable
//   /Count   Integer 7, Writable false
//   /Name    String "pump", Writable true
//   /Tree    children a, b, c and no Value
//   /Secret  Real 1, Writable true
//
// Rights: "*" reads "/" but nothing below "/Secret"; "writer" reads and writes "/".
#ifndef WSGATE_TESTS_UNIT_VALUES_FIXTURE_H
#define WSGATE_TESTS_UNIT_VALUES_FIXTURE_H

#include <stdlib.h>

#include <string>

#include "platform/cds.h"
#include "platform/element.h"
#include "store_fixture.h"
#include "service/options.h"

namespace wsgate_test {

class ValuesTest : public StoreTest {
 protected:
  static constexpr timeval kStamp{1700000000, 250000};  // 1700000000250 in platform time

  void SetUp() override {
    StoreTest::SetUp();
    toolkit::CElement v;
    v.set_real(21.5);
    point("/Temp", v, true);
    v.set_real(0);
    leaf("/Temp/Minimum", v);
    v.set_real(100);
    leaf("/Temp/Maximum", v);
    v.set_real(30);
    leaf("/Temp/.HiCriticalLimit", v);
    v.set_real(25);
    leaf("/Temp/.AlarmOnValue", v);
    v.set_bool(false);
    point("/Fan", v, true, "Off;On");
    v.set_bool(true);
    point("/Online", v, true);
    v.set_uint(1);
    point("/Mode", v, true, "Off;Auto;Manual");
    v.set_int(7);
    point("/Count", v, false);
    point("/Name", toolkit::CElement("pump"), true);
    for (const char* child : {"/Tree/a", "/Tree/b", "/Tree/c"}) node(child);
    v.set_real(1);
    point("/Secret", v, true);
    cds.rights_set({"*", "/", "r"});
    cds.rights_set({"*", "/Secret", ""});
    cds.rights_set({"writer", "/", "rw"});
  }

  void node(const std::string& path) {
    api_status_t status;
    ASSERT_EQ(cds.add_node(path, status, "test"), 0);
  }
  // Writes one leaf stamped kStamp.
  void leaf(const std::string& path, toolkit::CElement value, bool persist = false) {
    api_status_t status;
    value.set_time(kStamp);
    ASSERT_EQ(cds.set_leaf(path, value, status, persist, "test"), 0);
    ASSERT_EQ(status, API_STATUS_OK) << path;
  }
  void point(const std::string& path, const toolkit::CElement& value, bool writable,
             const std::string& texts = "") {
    node(path);
    leaf(path + "/Value", value);
    toolkit::CElement flag;
    flag.set_bool(writable);
    leaf(path + "/Writable", flag);
    if (texts.empty()) return;
    leaf(path + "/PossibleValues", toolkit::CElement(texts));
    leaf(path + "/WritableValues", toolkit::CElement(texts));
  }

  toolkit::CElement stored(const std::string& path) {
    api_status_t status;
    toolkit::CElement value;
    element_property_t prop;
    cds.get_leaf(path, status, value, prop);
    return value;
  }
  std::string storedText(const std::string& path) { return stored(path).to_string(); }

  // Acts as `user` from `address` (null: the variable is unset) until the next call.
  void actAs(const char* user, const char* address = "10.0.0.7") {
    setOrUnset("REMOTE_USER", user);
    setOrUnset("REMOTE_ADDR", address);
  }

  static RequestOptions options(const char* text) {
    const std::string s = text;
    return parseOptions(&s);
  }

  RequestOptions defaults = options("");

 private:
  static void setOrUnset(const char* name, const char* value) {
    if (value != nullptr) {
      setenv(name, value, 1);
    } else {
      unsetenv(name);
    }
  }

  // Put back as they were after the test; actAs changes them.
  ScopedEnv keep_user_{"REMOTE_USER", ""};
  ScopedEnv keep_address_{"REMOTE_ADDR", ""};
};

}  // namespace wsgate_test

#endif  // WSGATE_TESTS_UNIT_VALUES_FIXTURE_H

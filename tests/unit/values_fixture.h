// A small gateway for the operation tests: points of each kind, rights for a reader, a
// writer and a user who may read nothing below /Secret, and helpers to act as a user.
//
//   /Temp    Real 21.5, Writable, Minimum 0, Maximum 100, .HiCriticalLimit 30, .AlarmOnValue 25
//   /Fan     Boolean false with PossibleValues and WritableValues "Off;On", Writable
//   /Online  Boolean true without texts, Writable
//   /Mode    Unsigned 1 with PossibleValues and WritableValues "Off;Auto;Manual", Writable
//   /Count   Integer 7, not Writable
//   /Name    String "pump", Writable
//   /Tree    children a, b, c and no Value
//   /Secret  Real 1, Writable
//
// Rights: "*" reads "/" but nothing below "/Secret"; "writer" reads and writes "/".
#ifndef WSGATE_TESTS_UNIT_VALUES_FIXTURE_H
#define WSGATE_TESTS_UNIT_VALUES_FIXTURE_H

#include <optional>
#include <string>

#include "platform/cds.h"
#include "platform/element.h"
#include "service/options.h"
#include "store_fixture.h"

namespace wsgate_test {

// `text` converted to the store type named `type` ("Real", "Boolean", "Unsigned", ...).
inline toolkit::CElement typed(const char* type, const std::string& text) {
  toolkit::CElement value(text);
  EXPECT_EQ(value.convert_type(pcd_human_str_to_enum(type)), 0) << type << " " << text;
  return value;
}

// The result of `call` made while the store's call number `skip` (from 0) fails once.
template <typename Call>
auto withFailure(pcd_handle_t handle, int skip, Call call) {
  pcd_inject_failure(handle, skip, 1);
  auto result = call();
  pcd_inject_failure(handle, 0, 0);
  return result;
}

class ValuesTest : public StoreTest {
 protected:
  static constexpr timeval kStamp{1700000000, 250000};  // 1700000000250 in platform time

  void SetUp() override {
    StoreTest::SetUp();
    actAs("", "");
    point("/Temp", typed("Real", "21.5"), true);
    for (const auto& [name, text] : {std::pair{"Minimum", "0"},
                                     {"Maximum", "100"},
                                     {".HiCriticalLimit", "30"},
                                     {".AlarmOnValue", "25"}}) {
      leaf(std::string("/Temp/") + name, typed("Real", text));
    }
    point("/Fan", typed("Boolean", "false"), true, "Off;On");
    point("/Online", typed("Boolean", "true"), true);
    point("/Mode", typed("Unsigned", "1"), true, "Off;Auto;Manual");
    point("/Count", typed("Integer", "7"), false);
    point("/Name", toolkit::CElement("pump"), true);
    for (const char* child : {"/Tree/a", "/Tree/b", "/Tree/c"}) node(child);
    point("/Secret", typed("Real", "1"), true);
    cds.rights_set({"*", "/", "r"});
    cds.rights_set({"*", "/Secret", ""});
    cds.rights_set({"writer", "/", "rw"});
  }

  // Writes one leaf stamped kStamp.
  void leaf(const std::string& path, toolkit::CElement value, bool persist = false) {
    value.set_time(kStamp);
    StoreTest::leaf(path, value, persist);
  }
  void point(const std::string& path, const toolkit::CElement& value, bool writable,
             const std::string& texts = "") {
    node(path);
    leaf(path + "/Value", value);
    leaf(path + "/Writable", typed("Boolean", writable ? "true" : "false"));
    if (texts.empty()) return;
    leaf(path + "/PossibleValues", toolkit::CElement(texts));
    leaf(path + "/WritableValues", toolkit::CElement(texts));
  }

  toolkit::CElement stored(const std::string& path, element_property_t* prop = nullptr) {
    api_status_t status;
    toolkit::CElement value;
    element_property_t ignored;
    cds.get_leaf(path, status, value, prop != nullptr ? *prop : ignored);
    return value;
  }
  std::string storedText(const std::string& path) { return stored(path).to_string(); }
  // The leaf's storage class and the type of its value, as "persistent Real".
  std::string storedKind(const std::string& path) {
    element_property_t prop;
    const toolkit::CElement value = stored(path, &prop);
    const char* type = pcd_enum_to_str(value.get_type());
    return std::string(prop.storage == STORAGE_PERSISTENT ? "persistent " : "") +
           (type != nullptr ? type : "none");
  }

  // Acts as `user` from `address` (null: the variable is unset) until the next call.
  void actAs(const char* user, const char* address = "10.0.0.7") {
    user_.emplace("REMOTE_USER", user);
    address_.emplace("REMOTE_ADDR", address);
  }

  static RequestOptions options(const char* text) {
    const std::string s = text;
    return parseOptions(&s);
  }

  RequestOptions defaults = options("");

 private:
  // Put back as they were after the test.
  std::optional<ScopedEnv> user_, address_;
};

}  // namespace wsgate_test

#endif  // WSGATE_TESTS_UNIT_VALUES_FIXTURE_H

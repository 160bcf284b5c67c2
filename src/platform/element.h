// Typed values of the Data store.
#ifndef WSGATE_PLATFORM_ELEMENT_H
#define WSGATE_PLATFORM_ELEMENT_H

#include <sys/time.h>

#include <cstdint>
#include <string>
#include <vector>

// The type of a leaf value. 7 is a sentinel used only by the writers' attribute type table
// ("the type of the node's Value leaf") and is never stored.
enum data_type_t {
  DATA_TYPE_NONE = 0,
  DATA_TYPE_BOOL = 1,
  DATA_TYPE_INT = 2,
  DATA_TYPE_UINT = 3,
  DATA_TYPE_REAL = 4,
  DATA_TYPE_INT64 = 5,
  DATA_TYPE_STRING = 6,
  DATA_TYPE_VALUE_TYPE = 7,
  DATA_TYPE_UINT64 = 8,
  DATA_TYPE_TIMEVAL = 9,
};

// Type names: "None", "Boolean", "Integer", "Unsigned", "Real", "Integer64", "String",
// "Unsigned64", "timeval". pcd_human_str_to_enum compares without regard to case and gives
// DATA_TYPE_NONE for an unknown or null name; pcd_enum_to_str gives null for a type
// without a name (7 and anything outside the table).
data_type_t pcd_human_str_to_enum(const char* name);
const char* pcd_enum_to_str(data_type_t type);

namespace toolkit {

// A typed value with the time stamp of its last write. Text form (to_string):
//   Boolean "true"/"false"; integers in decimal; Real the shortest text that reads back as
//   the same double ("nan", "inf", "-inf" for the special values); String as is; timeval as
//   decimal platform time (milliseconds since the epoch); None "".
class CElement {
 public:
  // The text that stands for a value or type that has no text.
  static const std::string _invalid;

  CElement() = default;
  // A string element holding `text`: how every value made from a request text starts.
  explicit CElement(const std::string& text) { set_string(text); }

  data_type_t get_type() const { return type_; }
  const timeval& get_time() const { return time_; }
  void set_time(const timeval& tv) { time_ = tv; }

  void clear();  // back to type None; the time stamp is kept
  void set_bool(bool v);
  void set_int(int32_t v);
  void set_uint(uint32_t v);
  void set_real(double v);
  void set_int64(int64_t v);
  void set_uint64(uint64_t v);
  void set_string(const std::string& v);
  void set_timeval(const timeval& v);

  void to_string(std::string& out) const;
  std::string to_string() const;
  // Numeric reads never fail: a value that does not fit is cut to the target's range, a
  // text that does not read as a number gives 0, None gives 0 / false. to_bool is true
  // for a non-zero number and for the texts "true" and "1" (any case).
  int32_t to_int() const;
  uint32_t to_uint() const;
  bool to_bool() const;
  double to_double() const;
  int64_t to_int64() const;
  uint64_t to_uint64() const;
  // The held timeval to the microsecond; a number or numeric text counts as platform time,
  // anything else gives {0, 0}.
  timeval to_timeval() const;

  // Converts the held value in place to `type`. Strings are parsed (whole text, blanks
  // around allowed; booleans "true"/"false"/"1"/"0" in any case; integer types take decimal
  // integers only; an empty text reads as 0 for every numeric type), numbers are converted
  // between types when they fit (reals are cut towards zero), anything converts to String.
  // The time stamp is kept. Returns 0 on success; on failure the value is unchanged and the
  // result is non-zero.
  int convert_type(data_type_t type);

  // Splits a list text at ";" into `out` (replaced). An empty text gives no items; empty
  // items between separators are kept.
  static void split_string(const std::string& text, std::vector<std::string>& out);

  // Equal type and value (NaN equals NaN); the time stamps are not compared.
  bool operator==(const CElement& o) const;
  bool operator!=(const CElement& o) const { return !(*this == o); }

 private:
  data_type_t type_ = DATA_TYPE_NONE;
  timeval time_{0, 0};
  union {
    int64_t i;
    uint64_t u;
    double d;
  } num_{0};
  std::string text_;
};

}  // namespace toolkit

#endif  // WSGATE_PLATFORM_ELEMENT_H

#include "platform/element.h"

#include <strings.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

#include "platform/vtx.h"

namespace {

struct TypeName {
  data_type_t type;
  const char* name;
};
constexpr TypeName kTypeNames[] = {
    {DATA_TYPE_NONE, "None"},     {DATA_TYPE_BOOL, "Boolean"},      {DATA_TYPE_INT, "Integer"},
    {DATA_TYPE_UINT, "Unsigned"}, {DATA_TYPE_REAL, "Real"},         {DATA_TYPE_INT64, "Integer64"},
    {DATA_TYPE_STRING, "String"}, {DATA_TYPE_UINT64, "Unsigned64"}, {DATA_TYPE_TIMEVAL, "timeval"},
};

constexpr int64_t kMicrosPerSecond = 1000000;

// A value seen as a number: the common ground of every numeric read and conversion.
struct Number {
  enum Kind { kNone, kSigned, kUnsigned, kReal } kind = kNone;
  int64_t s = 0;
  uint64_t u = 0;
  double d = 0;
};

std::string_view trimBlanks(std::string_view s) {
  const char* kBlanks = " \t\r\n\f\v";
  size_t b = s.find_first_not_of(kBlanks);
  if (b == std::string_view::npos) return {};
  size_t e = s.find_last_not_of(kBlanks);
  return s.substr(b, e - b + 1);
}

// Whole decimal text (blanks around allowed) as a signed or, when it is too large for
// that, an unsigned integer.
bool parseInteger(std::string_view text, Number& out) {
  std::string_view s = trimBlanks(text);
  if (!s.empty() && s[0] == '+') s.remove_prefix(1);
  if (s.empty() || s[0] == '+') return false;
  const char* end = s.data() + s.size();
  int64_t v = 0;
  auto r = std::from_chars(s.data(), end, v);
  if (r.ec == std::errc() && r.ptr == end) {
    out.kind = Number::kSigned;
    out.s = v;
    return true;
  }
  uint64_t u = 0;
  r = std::from_chars(s.data(), end, u);
  if (r.ec == std::errc() && r.ptr == end) {
    out.kind = Number::kUnsigned;
    out.u = u;
    return true;
  }
  return false;
}

// Whole text as a double; from_chars rather than strtod so that the process locale
// never changes the decimal point.
bool parseReal(std::string_view text, double& out) {
  std::string_view s = trimBlanks(text);
  bool negative = false;
  if (!s.empty() && (s[0] == '+' || s[0] == '-')) {
    negative = s[0] == '-';
    s.remove_prefix(1);
  }
  if (s.empty() || s[0] == '+' || s[0] == '-') return false;
  const char* end = s.data() + s.size();
  double v = 0;
  auto r = std::from_chars(s.data(), end, v);
  if (r.ptr != end) return false;
  if (r.ec == std::errc::result_out_of_range) {
    // from_chars leaves the value alone on overflow or underflow; keep what strtod gives.
    v = std::strtod(std::string(s).c_str(), nullptr);
  } else if (r.ec != std::errc()) {
    return false;
  }
  out = negative ? -v : v;
  return true;
}

bool parseNumber(std::string_view text, Number& out) {
  if (parseInteger(text, out)) return true;
  double d = 0;
  if (!parseReal(text, d)) return false;
  out.kind = Number::kReal;
  out.d = d;
  return true;
}

// Converts to an integral type. With `clamp`, out-of-range values are cut to the range
// and NaN or no number gives 0; without it, they fail. Reals are truncated towards zero.
template <typename T>
bool toIntegral(const Number& n, T& out, bool clamp) {
  using Limits = std::numeric_limits<T>;
  switch (n.kind) {
    case Number::kNone:
      out = 0;
      return clamp;
    case Number::kSigned:
      if (n.s < 0 && static_cast<long double>(n.s) < Limits::min()) {
        out = Limits::min();
        return clamp;
      }
      if (n.s > 0 && static_cast<uint64_t>(n.s) > static_cast<uint64_t>(Limits::max())) {
        out = Limits::max();
        return clamp;
      }
      out = static_cast<T>(n.s);
      return true;
    case Number::kUnsigned:
      if (n.u > static_cast<uint64_t>(Limits::max())) {
        out = Limits::max();
        return clamp;
      }
      out = static_cast<T>(n.u);
      return true;
    case Number::kReal: {
      if (std::isnan(n.d)) {
        out = 0;
        return clamp;
      }
      long double t = std::trunc(static_cast<long double>(n.d));
      if (t < static_cast<long double>(Limits::min())) {
        out = Limits::min();
        return clamp;
      }
      if (t > static_cast<long double>(Limits::max())) {
        out = Limits::max();
        return clamp;
      }
      out = static_cast<T>(t);
      return true;
    }
  }
  return false;
}

double toReal(const Number& n) {
  switch (n.kind) {
    case Number::kSigned:
      return static_cast<double>(n.s);
    case Number::kUnsigned:
      return static_cast<double>(n.u);
    case Number::kReal:
      return n.d;
    case Number::kNone:
      break;
  }
  return 0;
}

int64_t timevalToMicros(const timeval& tv) {
  __int128 us = static_cast<__int128>(tv.tv_sec) * kMicrosPerSecond + tv.tv_usec;
  if (us > std::numeric_limits<int64_t>::max()) return std::numeric_limits<int64_t>::max();
  if (us < std::numeric_limits<int64_t>::min()) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(us);
}

timeval microsToTimeval(int64_t us) {
  timeval tv{};
  int64_t sec = us / kMicrosPerSecond;
  int64_t rest = us % kMicrosPerSecond;
  if (rest < 0) {
    rest += kMicrosPerSecond;
    --sec;
  }
  tv.tv_sec = static_cast<time_t>(sec);
  tv.tv_usec = static_cast<suseconds_t>(rest);
  return tv;
}

bool boolFromText(std::string_view text, bool& out) {
  if (text.size() == 1 && (text[0] == '1' || text[0] == '0')) {
    out = text[0] == '1';
    return true;
  }
  if (text.size() == 4 && strncasecmp(text.data(), "true", 4) == 0) {
    out = true;
    return true;
  }
  if (text.size() == 5 && strncasecmp(text.data(), "false", 5) == 0) {
    out = false;
    return true;
  }
  return false;
}

void realToString(double d, std::string& out) {
  if (std::isnan(d)) {
    out = "nan";
    return;
  }
  char buf[64];
  // to_chars without a precision gives the shortest text that reads back as `d`.
  auto r = std::to_chars(buf, buf + sizeof(buf), d);
  out.assign(buf, r.ptr);
}

}  // namespace

data_type_t pcd_human_str_to_enum(const char* name) {
  if (name == nullptr) return DATA_TYPE_NONE;
  for (const TypeName& t : kTypeNames) {
    if (strcasecmp(name, t.name) == 0) return t.type;
  }
  return DATA_TYPE_NONE;
}

const char* pcd_enum_to_str(data_type_t type) {
  for (const TypeName& t : kTypeNames) {
    if (t.type == type) return t.name;
  }
  return nullptr;
}

namespace toolkit {

const std::string CElement::_invalid = "Invalid";

void CElement::clear() {
  type_ = DATA_TYPE_NONE;
  num_.i = 0;
  text_.clear();
}

void CElement::set_bool(bool v) {
  clear();
  type_ = DATA_TYPE_BOOL;
  num_.i = v ? 1 : 0;
}

void CElement::set_int(int32_t v) {
  clear();
  type_ = DATA_TYPE_INT;
  num_.i = v;
}

void CElement::set_uint(uint32_t v) {
  clear();
  type_ = DATA_TYPE_UINT;
  num_.u = v;
}

void CElement::set_real(double v) {
  clear();
  type_ = DATA_TYPE_REAL;
  num_.d = v;
}

void CElement::set_int64(int64_t v) {
  clear();
  type_ = DATA_TYPE_INT64;
  num_.i = v;
}

void CElement::set_uint64(uint64_t v) {
  clear();
  type_ = DATA_TYPE_UINT64;
  num_.u = v;
}

void CElement::set_string(const std::string& v) {
  num_.i = 0;
  type_ = DATA_TYPE_STRING;
  text_ = v;
}

void CElement::set_timeval(const timeval& v) {
  clear();
  type_ = DATA_TYPE_TIMEVAL;
  num_.i = timevalToMicros(v);
}

void CElement::to_string(std::string& out) const {
  switch (type_) {
    case DATA_TYPE_BOOL:
      out = num_.i != 0 ? "true" : "false";
      return;
    case DATA_TYPE_INT:
    case DATA_TYPE_INT64:
      out = std::to_string(num_.i);
      return;
    case DATA_TYPE_UINT:
    case DATA_TYPE_UINT64:
      out = std::to_string(num_.u);
      return;
    case DATA_TYPE_REAL:
      realToString(num_.d, out);
      return;
    case DATA_TYPE_STRING:
      out = text_;
      return;
    case DATA_TYPE_TIMEVAL: {
      timeval tv = microsToTimeval(num_.i);
      out = std::to_string(vtx_UNIXtoVTXtime64(&tv));
      return;
    }
    default:
      out.clear();
      return;
  }
}

std::string CElement::to_string() const {
  std::string out;
  to_string(out);
  return out;
}

namespace {

// The number a value stands for; timevals count in platform milliseconds.
Number numberOf(data_type_t type, int64_t i, uint64_t u, double d, const std::string& text) {
  Number n;
  switch (type) {
    case DATA_TYPE_BOOL:
    case DATA_TYPE_INT:
    case DATA_TYPE_INT64:
      n.kind = Number::kSigned;
      n.s = i;
      break;
    case DATA_TYPE_UINT:
    case DATA_TYPE_UINT64:
      n.kind = Number::kUnsigned;
      n.u = u;
      break;
    case DATA_TYPE_REAL:
      n.kind = Number::kReal;
      n.d = d;
      break;
    case DATA_TYPE_TIMEVAL: {
      timeval tv = microsToTimeval(i);
      n.kind = Number::kSigned;
      n.s = vtx_UNIXtoVTXtime64(&tv);
      break;
    }
    case DATA_TYPE_STRING:
      if (!parseNumber(text, n)) n.kind = Number::kNone;
      break;
    default:
      break;
  }
  return n;
}

}  // namespace

int32_t CElement::to_int() const {
  int32_t v = 0;
  toIntegral(numberOf(type_, num_.i, num_.u, num_.d, text_), v, true);
  return v;
}

uint32_t CElement::to_uint() const {
  uint32_t v = 0;
  toIntegral(numberOf(type_, num_.i, num_.u, num_.d, text_), v, true);
  return v;
}

int64_t CElement::to_int64() const {
  int64_t v = 0;
  toIntegral(numberOf(type_, num_.i, num_.u, num_.d, text_), v, true);
  return v;
}

uint64_t CElement::to_uint64() const {
  uint64_t v = 0;
  toIntegral(numberOf(type_, num_.i, num_.u, num_.d, text_), v, true);
  return v;
}

timeval CElement::to_timeval() const {
  if (type_ == DATA_TYPE_TIMEVAL) return microsToTimeval(num_.i);
  int64_t ms = 0;
  Number n = numberOf(type_, num_.i, num_.u, num_.d, text_);
  if (n.kind == Number::kNone || !toIntegral(n, ms, false)) return timeval{0, 0};
  return vtx_VTXtoUNIXtime64(ms);
}

double CElement::to_double() const {
  return toReal(numberOf(type_, num_.i, num_.u, num_.d, text_));
}

bool CElement::to_bool() const {
  if (type_ == DATA_TYPE_STRING) {
    bool b = false;
    if (boolFromText(trimBlanks(text_), b)) return b;
  }
  Number n = numberOf(type_, num_.i, num_.u, num_.d, text_);
  if (n.kind == Number::kReal) return n.d != 0 && !std::isnan(n.d);
  return (n.kind == Number::kSigned && n.s != 0) || (n.kind == Number::kUnsigned && n.u != 0);
}

int CElement::convert_type(data_type_t type) {
  if (type == type_) return 0;
  const timeval keep_time = time_;
  if (type == DATA_TYPE_STRING) {
    std::string text = to_string();
    set_string(text);
    return 0;
  }
  if (type_ == DATA_TYPE_NONE) return 1;
  // A text that is empty reads as 0 for every numeric type, as the writers' checks do.
  Number n;
  if (type_ == DATA_TYPE_STRING && trimBlanks(text_).empty()) {
    n.kind = Number::kSigned;
  } else if (type_ == DATA_TYPE_STRING && type != DATA_TYPE_REAL) {
    if (!parseInteger(text_, n) && type != DATA_TYPE_BOOL) return 1;
  } else if (type_ == DATA_TYPE_STRING) {
    n.kind = Number::kReal;
    if (!parseReal(text_, n.d)) return 1;
  } else {
    n = numberOf(type_, num_.i, num_.u, num_.d, text_);
  }

  switch (type) {
    case DATA_TYPE_BOOL: {
      bool b = false;
      if (type_ == DATA_TYPE_STRING) {
        if (!boolFromText(trimBlanks(text_), b)) return 1;
      } else if (type_ == DATA_TYPE_TIMEVAL || (n.kind == Number::kReal && std::isnan(n.d))) {
        return 1;
      } else {
        b = to_bool();
      }
      set_bool(b);
      break;
    }
    case DATA_TYPE_INT: {
      int32_t v = 0;
      if (!toIntegral(n, v, false)) return 1;
      set_int(v);
      break;
    }
    case DATA_TYPE_UINT: {
      uint32_t v = 0;
      if (!toIntegral(n, v, false)) return 1;
      set_uint(v);
      break;
    }
    case DATA_TYPE_INT64: {
      int64_t v = 0;
      if (!toIntegral(n, v, false)) return 1;
      set_int64(v);
      break;
    }
    case DATA_TYPE_UINT64: {
      uint64_t v = 0;
      if (!toIntegral(n, v, false)) return 1;
      set_uint64(v);
      break;
    }
    case DATA_TYPE_REAL:
      set_real(toReal(n));
      break;
    case DATA_TYPE_TIMEVAL: {
      int64_t ms = 0;
      if (type_ == DATA_TYPE_BOOL || !toIntegral(n, ms, false)) return 1;
      set_timeval(vtx_VTXtoUNIXtime64(ms));
      break;
    }
    default:
      return 1;
  }
  time_ = keep_time;
  return 0;
}

void CElement::split_string(const std::string& text, std::vector<std::string>& out) {
  out.clear();
  if (text.empty()) return;
  size_t start = 0;
  while (true) {
    size_t sep = text.find(';', start);
    if (sep == std::string::npos) {
      out.emplace_back(text, start);
      return;
    }
    out.emplace_back(text, start, sep - start);
    start = sep + 1;
  }
}

bool CElement::operator==(const CElement& o) const {
  if (type_ != o.type_) return false;
  switch (type_) {
    case DATA_TYPE_NONE:
      return true;
    case DATA_TYPE_REAL:
      return num_.d == o.num_.d || (std::isnan(num_.d) && std::isnan(o.num_.d));
    case DATA_TYPE_STRING:
      return text_ == o.text_;
    default:
      return num_.i == o.num_.i;
  }
}

}  // namespace toolkit

#include "main/fcgi_params.h"

#include <cstdint>
#include <string_view>
#include <string>

namespace {

constexpr size_t kHeaderBytes = 8;
constexpr unsigned char kParamsRecord = 4;
constexpr unsigned char kStdinRecord = 5;
// The parameters whose values name the caller.
constexpr const char* kIdentity[] = {"REMOTE_USER", "REMOTE_ADDR"};

// A name-value length: one byte below 128, else four with the top bit set.
bool readLength(const std::string& in, size_t& at, uint32_t& length) {
  if (at >= in.size()) return false;
  const auto* p = reinterpret_cast<const unsigned char*>(in.data()) + at;
  if ((p[0] & 0x80) == 0) {
    length = p[0];
    at += 1;
    return true;
  }
  if (in.size() - at < 4) return false;
  length = (uint32_t{p[0]} & 0x7f) << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
  at += 4;
  return true;
}

bool identityHoldsNul(const std::string& params) {
  size_t at = 0;
  while (at < params.size()) {
    uint32_t name_length = 0;
    uint32_t value_length = 0;
    if (!readLength(params, at, name_length) || !readLength(params, at, value_length) ||
        params.size() - at < uint64_t{name_length} + value_length) {
      return true;  // a pair cut off inside the finished stream: malformed
    }
    const std::string_view name(params.data() + at, name_length);
    const std::string_view value(params.data() + at + name_length, value_length);
    for (const char* identity : kIdentity) {
      if (name == identity && value.find('\0') != std::string_view::npos) return true;
    }
    at += name_length + value_length;
  }
  return false;
}

}  // namespace

ParamsCheck checkParams(const unsigned char* data, size_t length) {
  std::string params;
  size_t at = 0;
  while (length - at >= kHeaderBytes) {
    const unsigned char* header = data + at;
    const size_t content = size_t{header[4]} << 8 | header[5];
    const size_t record = kHeaderBytes + content + header[6];
    if (length - at < record) return ParamsCheck::kIncomplete;
    if (header[1] == kParamsRecord) {
      if (content == 0) {
        return identityHoldsNul(params) ? ParamsCheck::kRefused : ParamsCheck::kComplete;
      }
      params.append(reinterpret_cast<const char*>(header + kHeaderBytes), content);
    }
    at += record;
  }
  return ParamsCheck::kIncomplete;
}

bool inputComplete(const unsigned char* data, size_t length) {
  size_t at = 0;
  while (length - at >= kHeaderBytes) {
    const unsigned char* header = data + at;
    const size_t content = size_t{header[4]} << 8 | header[5];
    if (header[1] == kStdinRecord && content == 0) return true;
    at += kHeaderBytes + content + header[6];
    if (at > length) return false;
  }
  return false;
}

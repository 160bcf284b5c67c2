#include "main/fcgi_params.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string record(unsigned char type, const std::string& content, unsigned char padding = 0) {
  std::string header = {1, 0, 0, 1, 0, 0, 0, 0};  // version 1, request 1
  header[1] = static_cast<char>(type);
  header[4] = static_cast<char>(content.size() >> 8);
  header[5] = static_cast<char>(content.size() & 0xff);
  header[6] = static_cast<char>(padding);
  return header + content + std::string(padding, 'p');
}

std::string pair(const std::string& name, const std::string& value) {
  std::string out;
  for (size_t length : {name.size(), value.size()}) {
    if (length >= 128) out += {char(0x80 | length >> 24), char(length >> 16), char(length >> 8)};
    out += static_cast<char>(length);
  }
  return out + name + value;
}

// A request's start as a web server sends it: the begin record, the parameters in
// `params` records, their end, and some body.
std::string start(const std::string& params, size_t split = std::string::npos) {
  const std::string begin = record(1, std::string(8, '\0'));
  if (split >= params.size())
    return begin + record(4, params, 3) + record(4, "") + record(5, "<x/>");
  return begin + record(4, params.substr(0, split)) + record(4, params.substr(split)) +
         record(4, "");
}

ParamsCheck check(const std::string& bytes) {
  return checkParams(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

TEST(FcgiParamsTest, IdentityWithANulIsRefusedWhereverTheRecordsSplit) {
  const std::string good = pair("HTTP_HOST", std::string("a\0b", 3)) + pair("REMOTE_USER", "op") +
                           pair("REMOTE_ADDR", "127.0.0.1") + pair("LONG", std::string(300, 'v'));
  EXPECT_EQ(check(start(good)), ParamsCheck::kComplete);
  EXPECT_EQ(check(start(good, 5)), ParamsCheck::kComplete);
  for (const char* name : {"REMOTE_USER", "REMOTE_ADDR"}) {
    const std::string bad = good + pair(name, std::string("operator\0x", 10));
    EXPECT_EQ(check(start(bad)), ParamsCheck::kRefused) << name;
    EXPECT_EQ(check(start(bad, bad.size() - 3)), ParamsCheck::kRefused) << name;
  }
  // A pair cut off by the end of the stream is malformed.
  EXPECT_EQ(check(start(good.substr(0, good.size() - 1))), ParamsCheck::kRefused);
}

TEST(FcgiParamsTest, InputIsCompleteOnlyWithTheEndOfItsBody) {
  const std::string head = start(pair("REMOTE_USER", "op"));  // ends inside the body
  const std::string whole = head + record(5, "", 2);
  const auto complete = [](const std::string& bytes) {
    return inputComplete(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  };
  EXPECT_TRUE(complete(whole));
  EXPECT_TRUE(complete(whole + record(2, "")));  // whatever follows the end
  EXPECT_FALSE(complete(head));
  EXPECT_FALSE(complete(whole.substr(0, whole.size() - 3)));  // its header cut off
  EXPECT_FALSE(complete(""));
  // An empty record of another type, or one hidden inside a body, ends nothing.
  EXPECT_FALSE(complete(head + record(4, "")));
  EXPECT_FALSE(complete(record(5, record(5, "") + "x")));
}

}  // namespace

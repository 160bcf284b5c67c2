#include "platform/element.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace {

using toolkit::CElement;

CElement real(double d) {
  CElement e;
  e.set_real(d);
  return e;
}

// The text forms of every type are checked end to end (tests/e2e/cds_tool_test.py); here the
// edges: times before the epoch, and reals that are no numbers.
TEST(ElementTest, TextForms) {
  CElement e;
  EXPECT_EQ(e.to_string(), "");
  e.set_timeval(timeval{-1, 500000});  // half a second before the epoch
  EXPECT_EQ(e.to_string(), "-500");
  const std::pair<double, const char*> reals[] = {
      {0.1, "0.1"}, {1.5, "1.5"}, {100, "100"}, {std::nan(""), "nan"}, {-INFINITY, "-inf"}};
  for (const auto& [d, text] : reals) EXPECT_EQ(real(d).to_string(), text);
}

TEST(ElementTest, RealTextIsTheShortestThatRoundTrips) {
  std::mt19937_64 rng(7);
  for (int i = 0; i < 20000; ++i) {
    uint64_t bits = rng();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    if (!std::isfinite(d)) continue;
    std::string text = real(d).to_string();
    CElement back(text);
    ASSERT_EQ(back.convert_type(DATA_TYPE_REAL), 0) << text;
    ASSERT_EQ(back.to_double(), d) << text;
  }
  EXPECT_EQ(real(0.1 + 0.2).to_string(), "0.30000000000000004");
}

TEST(ElementTest, NumericReadsClampAndNeverFail) {
  EXPECT_EQ(real(1e20).to_int(), std::numeric_limits<int32_t>::max());
  EXPECT_EQ(real(-1e20).to_uint(), 0u);
  EXPECT_EQ(real(std::nan("")).to_int64(), 0);
  EXPECT_EQ(real(-2.9).to_int(), -2);
  EXPECT_EQ(CElement("12").to_int(), 12);
  EXPECT_EQ(CElement("abc").to_int(), 0);
  EXPECT_EQ(CElement("3.5").to_double(), 3.5);
  EXPECT_EQ(CElement("18446744073709551615").to_uint64(), std::numeric_limits<uint64_t>::max());
  EXPECT_TRUE(CElement("TRUE").to_bool());
  EXPECT_TRUE(CElement("1").to_bool());
  EXPECT_FALSE(CElement("yes").to_bool());
  EXPECT_TRUE(real(0.5).to_bool());
  EXPECT_FALSE(CElement().to_bool());
}

TEST(ElementTest, ConvertTypeSucceedsOnlyWhenTheValueFits) {
  // The text, the type it is converted to, and the new text or null when it does not fit.
  const struct {
    const char* text;
    data_type_t type;
    const char* result;
  } cases[] = {
      {"42", DATA_TYPE_INT, "42"},
      {" 42 ", DATA_TYPE_INT, "42"},
      {"+7", DATA_TYPE_INT, "7"},
      {"", DATA_TYPE_INT, "0"},
      {"2147483648", DATA_TYPE_INT, nullptr},
      {"-1", DATA_TYPE_UINT, nullptr},
      {"4294967295", DATA_TYPE_UINT, "4294967295"},
      {"1.5", DATA_TYPE_INT, nullptr},
      {"0x10", DATA_TYPE_INT, nullptr},
      {"12abc", DATA_TYPE_INT64, nullptr},
      {"1e3", DATA_TYPE_REAL, "1000"},
      {"-inf", DATA_TYPE_REAL, "-inf"},
      {"abc", DATA_TYPE_REAL, nullptr},
      {"TRUE", DATA_TYPE_BOOL, "true"},
      {"0", DATA_TYPE_BOOL, "false"},
      {"2", DATA_TYPE_BOOL, nullptr},
      {"1700000000123", DATA_TYPE_TIMEVAL, "1700000000123"},
      {"x", DATA_TYPE_NONE, nullptr},
      {"x", DATA_TYPE_VALUE_TYPE, nullptr},
  };
  for (const auto& c : cases) {
    CElement e(c.text);
    e.set_time(timeval{5, 6});
    EXPECT_EQ(e.convert_type(c.type) == 0, c.result != nullptr) << c.text << " to " << c.type;
    if (c.result != nullptr) {
      EXPECT_EQ(e.get_type(), c.type) << c.text;
      EXPECT_EQ(e.to_string(), c.result) << c.text;
      EXPECT_EQ(e.get_time().tv_usec, 6);
    } else {
      EXPECT_EQ(e, CElement(c.text)) << "a failed conversion changes nothing";
    }
  }
  CElement r = real(-3.99);
  ASSERT_EQ(r.convert_type(DATA_TYPE_INT), 0);
  EXPECT_EQ(r.to_int(), -3);
  r = real(std::nan(""));
  EXPECT_NE(r.convert_type(DATA_TYPE_INT), 0);
  CElement b;
  b.set_bool(true);
  ASSERT_EQ(b.convert_type(DATA_TYPE_STRING), 0);
  EXPECT_EQ(b, CElement("true"));
  EXPECT_EQ(pcd_enum_to_str(DATA_TYPE_VALUE_TYPE), nullptr);  // the sentinel has no name
}

}  // namespace

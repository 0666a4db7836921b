#include "foundation/values/IntegerValue.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using tks::integerValue;

constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();

TEST(IntegerValue, ReadsLeadingBlanksASignAndDigits) {
  EXPECT_EQ(integerValue("2005"), 2005);
  EXPECT_EQ(integerValue(" \t\n2005"), 2005);
  EXPECT_EQ(integerValue("-7"), -7);
  EXPECT_EQ(integerValue("+7"), 7);
  EXPECT_EQ(integerValue("007"), 7);
  EXPECT_EQ(integerValue("12abc"), 12);
  EXPECT_EQ(integerValue("4.9"), 4);
}

TEST(IntegerValue, IsZeroForAnythingElse) {
  for (const char* text : {"", " ", "abc", "-", "+", "--1", "- 1", "x1", ".5"})
    EXPECT_EQ(integerValue(text), 0) << text;
}

TEST(IntegerValue, SaturatesAtThirtyTwoBits) {
  EXPECT_EQ(integerValue("2147483647"), kMost);
  EXPECT_EQ(integerValue("2147483648"), kMost);
  EXPECT_EQ(integerValue("-2147483648"), kLeast);
  EXPECT_EQ(integerValue("-2147483649"), kLeast);
  EXPECT_EQ(integerValue("99999999999999999999999999"), kMost);
  EXPECT_EQ(integerValue("-99999999999999999999999999"), kLeast);
}

TEST(IntegerValue, ConvertsNumbers) {
  EXPECT_EQ(integerValue(TKSValue(2006)), 2006);
  EXPECT_EQ(integerValue(TKSValue(std::int64_t{1} << 40)), kMost);
  EXPECT_EQ(integerValue(TKSValue(-1e300)), kLeast);
  EXPECT_EQ(integerValue(TKSValue(-3.9)), -3);
  EXPECT_EQ(integerValue(TKSValue(true)), 1);
  EXPECT_EQ(integerValue(TKSValue("2001")), 2001);
  EXPECT_EQ(integerValue(TKSValue(TKSNull())), 0);
  EXPECT_EQ(integerValue(TKSValue()), 0);
  EXPECT_EQ(integerValue(TKSValue(TKSArray{1})), 0);
}

}  // namespace

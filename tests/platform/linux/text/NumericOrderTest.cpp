#include <gtest/gtest.h>

#include "platform/platform.h"

// The order of texts where macOS, which counts by 64 bits and compares code points, has another.

namespace {

int order(std::string_view left, std::string_view right) {
  return tks::platform::text().compareNumerically(left, right);
}

TEST(NumericOrder, NumbersMayBeLongerThanAnyInteger) {
  EXPECT_LT(order("99999999999999999999998", "99999999999999999999999"), 0);
  EXPECT_LT(order("9", "10000000000000000000000"), 0);
  EXPECT_LT(order("1", "18446744073709551616"), 0) << "2^64";
}

TEST(NumericOrder, CharactersCompareByTheirUnits) {
  EXPECT_LT(order("\U00010400", "\uFF21"), 0) << "a surrogate is less than the last units";
  EXPECT_LT(order("e\u0301", "\u00e9"), 0) << "composed or not";
}

}  // namespace

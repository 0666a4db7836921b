#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "platform/platform.h"
#include "platform/text.h"
#include "tests/support/FakePreferences.h"

// Where the locale of numbers comes from on this system: from the preferences, asked each time.

namespace {

std::string decimalIn(const TKSValue& locale, const TKSValue& number) {
  const tks::test::FakePreferences preferences({{"AppleLocale", locale}});
  return tks::platform::text().decimal(number);
}

TEST(NumberLocale, AChangeIsFollowed) {
  EXPECT_EQ(decimalIn("de_DE", 1000), "1.000");
  EXPECT_EQ(decimalIn("en_GB", 1000), "1,000");
}

TEST(NumberLocale, WithoutOneNumbersAreWrittenInEnglish) {
  EXPECT_EQ(decimalIn(TKSValue(), 1000), "1,000");
  EXPECT_EQ(decimalIn("", 1000), "1,000");
  EXPECT_EQ(decimalIn(7, 1000), "1,000");
}

}  // namespace

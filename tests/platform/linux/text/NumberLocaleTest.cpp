#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "platform/platform.h"
#include "platform/text.h"

// Where the locale of numbers comes from on this system: from the preferences, asked each time.

namespace {

/// A user who chose a locale, or none.
class ChosenLocale final : public tks::platform::Preferences {
 public:
  explicit ChosenLocale(TKSValue locale) : locale_(std::move(locale)) {}
  TKSDictionary dictionaryRepresentation() override { return {{"AppleLocale", locale_}}; }
  TKSValue value(std::string_view key) override { return key == "AppleLocale" ? locale_ : TKSValue(); }
  TKSValue argument(std::string_view) override { return {}; }
  bool set(std::string_view, const TKSValue&, TKSError*) override { return false; }

 private:
  TKSValue locale_;
};

std::string decimalIn(const TKSValue& locale, const TKSValue& number) {
  ChosenLocale preferences(locale);
  const tks::platform::Replaced<tks::platform::Preferences> replaced(preferences);
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

#include <gtest/gtest.h>
#include <unicode/locid.h>
#include <unicode/normlzr.h>
#include <unicode/numberformatter.h>
#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <chrono>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "platform/platform.h"
#include "platform/text.h"
#include "tests/support/FakePreferences.h"

// Operations on texts give what ICU's classes for C++ give, for random texts, patterns and numbers: the model is what
// each operation means there.

namespace {

using Match = tks::platform::Text::Match;

tks::platform::Text& text() { return tks::platform::text(); }

icu::UnicodeString unicode(const std::string& text) { return icu::UnicodeString::fromUTF8(text); }

/// Pieces that are joined at random: letters of several scripts, digits, accents, broken sequences, NUL, pairs of
/// units.
const std::vector<std::string>& pieces() {
  static const std::vector<std::string> all = {"a",
                                               "B",
                                               "Z",
                                               "0",
                                               "00",
                                               "7",
                                               "9",
                                               ".",
                                               " ",
                                               std::string(1, '\0'),
                                               "I",
                                               "\u0130",
                                               "\u0131",
                                               "\u00df",
                                               "\u1e9e",
                                               "\u00c4",
                                               "\u00e4",
                                               "A\u0308",
                                               "\u03a3",
                                               "\u03c3",
                                               "\u03c2",
                                               "\ufb01",
                                               "\u0660",
                                               "\xC3",
                                               "\xFF",
                                               "\xED\xA0\x80",
                                               "\xF0\x9F\x98",
                                               "\U0001F600",
                                               "\U00010400",
                                               "\u01c5"};
  return all;
}

class TextModel : public ::testing::Test {
 protected:
  std::string randomText(std::size_t most) {
    std::string made;
    for (std::size_t i = random() % (most + 1); i > 0; --i) made += pieces()[random() % pieces().size()];
    return made;
  }

  std::mt19937 random{20};
};

TEST_F(TextModel, LowerCase) {
  for (int i = 0; i < 20'000; ++i) {
    const std::string given = randomText(12);
    std::string expected;
    unicode(given).toLower(icu::Locale::getRoot()).toUTF8String(expected);
    ASSERT_EQ(text().lowerCase(given), expected) << testing::PrintToString(given);
  }
}

TEST_F(TextModel, EqualityIgnoringCase) {
  for (int i = 0; i < 40'000; ++i) {
    const std::string left = randomText(3);
    const std::string right = randomText(3);
    UErrorCode status = U_ZERO_ERROR;
    const int order = icu::Normalizer::compare(unicode(left), unicode(right), U_COMPARE_IGNORE_CASE, status);
    ASSERT_EQ(text().equalIgnoringCase(left, right), U_SUCCESS(status) && order == 0)
        << testing::PrintToString(left) << " and " << testing::PrintToString(right);
  }
}

TEST_F(TextModel, LengthInUnits) {
  for (int i = 0; i < 20'000; ++i) {
    const std::string given = randomText(12);
    ASSERT_EQ(text().utf16Length(given), static_cast<std::size_t>(unicode(given).length()));
  }
}

/// Runs of digits as numbers, everything else by its units.
int numericOrder(const icu::UnicodeString& a, const icu::UnicodeString& b) {
  const auto isDigit = [](char16_t unit) { return unit >= u'0' && unit <= u'9'; };
  const auto takeNumber = [&](const icu::UnicodeString& from, std::int32_t& at) {
    while (at < from.length() && from[at] == u'0') ++at;
    const std::int32_t begin = at;
    while (at < from.length() && isDigit(from[at])) ++at;
    return from.tempSubStringBetween(begin, at);
  };
  std::int32_t i = 0;
  std::int32_t k = 0;
  while (i < a.length() && k < b.length()) {
    if (isDigit(a[i]) && isDigit(b[k])) {
      const icu::UnicodeString left = takeNumber(a, i);
      const icu::UnicodeString right = takeNumber(b, k);
      const int order = left.length() != right.length() ? left.length() - right.length() : left.compare(right);
      if (order != 0) return order;
    } else if (a[i] != b[k]) {
      return a[i] - b[k];
    } else {
      ++i;
      ++k;
    }
  }
  return (a.length() - i) - (b.length() - k);
}

int sign(int number) { return (number > 0) - (number < 0); }

TEST_F(TextModel, NumericOrder) {
  for (int i = 0; i < 40'000; ++i) {
    const std::string left = randomText(5);
    const std::string right = randomText(5);
    ASSERT_EQ(sign(text().compareNumerically(left, right)), sign(numericOrder(unicode(left), unicode(right))))
        << testing::PrintToString(left) << " and " << testing::PrintToString(right);
  }
}

TEST_F(TextModel, Patterns) {
  const std::vector<std::string> parts = {"a",   "[a-c]", "(",   ")",      "*",   "+",   "?",    "|",  "^", "$", ".",
                                          "\\d", "\\b",   "{2}", "\u00c4", "\\Q", "(?=", "\xFF", "\\", "[", "]", "x"};
  const auto forever = std::chrono::steady_clock::time_point::max();
  for (int i = 0; i < 20'000; ++i) {
    std::string pattern;
    for (std::size_t k = 1 + random() % 4; k > 0; --k) pattern += parts[random() % parts.size()];
    const std::string input = randomText(6);
    UErrorCode status = U_ZERO_ERROR;
    UParseError place{};
    const std::unique_ptr<icu::RegexPattern> compiled(
        icu::RegexPattern::compile(unicode(pattern), UREGEX_CASE_INSENSITIVE, place, status));
    Match expected = Match::badPattern;
    if (U_SUCCESS(status)) {
      const icu::UnicodeString units = unicode(input);
      const std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(units, status));
      expected = matcher->find(status) && U_SUCCESS(status) ? Match::matched : Match::notMatched;
    }
    ASSERT_EQ(text().findPattern(pattern, input, forever), expected)
        << pattern << " in " << testing::PrintToString(input);
  }
}

std::string modelOfDecimal(const std::string& locale, const TKSValue& number) {
  UErrorCode status = U_ZERO_ERROR;
  const auto formatter = icu::number::NumberFormatter::withLocale(icu::Locale::createFromName(locale.c_str()))
                             .precision(icu::number::Precision::maxFraction(3));
  const std::string digits = number.description();
  const auto formatted = number.isReal()              ? formatter.formatDouble(number.real(), status)
                         : number.isUnsignedInteger() ? formatter.formatDecimal(digits, status)
                                                      : formatter.formatInt(number.integer(), status);
  std::string text;
  return formatted.toString(status).toUTF8String(text);
}

TEST_F(TextModel, Numbers) {
  using Integers = std::numeric_limits<std::int64_t>;
  using Reals = std::numeric_limits<double>;
  std::vector<TKSValue> numbers = {0,
                                   -1,
                                   Integers::min(),
                                   Integers::max(),
                                   std::numeric_limits<std::uint64_t>::max(),
                                   0.0005,
                                   0.0015,
                                   -0.0,
                                   Reals::infinity(),
                                   Reals::quiet_NaN(),
                                   Reals::max(),
                                   1e22};
  for (int i = 0; i < 200; ++i) {
    numbers.emplace_back(static_cast<std::int64_t>(random()) * static_cast<std::int64_t>(random()) >> (random() % 64));
    numbers.emplace_back(static_cast<double>(random()) / static_cast<double>(1 + random() % 100'000));
  }
  for (const char* locale :
       {"en_US", "de_DE", "de_CH", "hi_IN", "ar_EG", "fa", "fr_FR@numbers=arab", "no such locale", "C"}) {
    const tks::test::FakePreferences preferences({{"AppleLocale", locale}});
    for (const TKSValue& number : numbers) {
      ASSERT_EQ(text().decimal(number), modelOfDecimal(locale, number)) << locale << " " << number.description();
    }
  }
}

}  // namespace

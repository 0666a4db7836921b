#include "platform/text.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "tests/support/ChildProcess.h"

// What every implementation of the contract promises. On macOS letter case and order are those of NSString without a
// locale, numbers in texts are compared by 64 bits and characters by code points (CFString.c); patterns are ICU's, as
// on Linux, and numbers are written by the locale that the process was started with. How Linux compares what is longer:
// linux/text/NumericOrderTest.cpp.

namespace {

using namespace tks::test;
using tks::platform::Text;
using Match = Text::Match;

Text& text() { return tks::platform::text(); }

/// NUMBER...: prints each in decimal style. A user's locale is the process's own, so it takes another process to have
/// another one.
int printDecimals(const Arguments& arguments) {
  for (auto number = arguments.begin(); number != arguments.end() && *number != "-AppleLocale"; ++number) {
    const bool isReal = number->find('.') != std::string::npos;
    std::cout << text().decimal(isReal ? TKSValue(std::stod(*number)) : TKSValue(std::stoll(*number))) << "\n";
  }
  return 0;
}
const ChildRole kPrintDecimals("print-decimals", printDecimals);

/// The numbers in decimal style, a line each, for a user who chose a locale.
std::string decimalsIn(const std::string& locale, Arguments numbers) {
  numbers.insert(numbers.end(), {"-AppleLocale", locale});
  ChildProcess child = ChildProcess::inRole("print-decimals", numbers);
  EXPECT_EQ(child.wait(), 0);
  return child.output();
}

TEST(LowerCase, FollowsTheRulesThatHoldInEveryLanguage) {
  EXPECT_EQ(text().lowerCase("ABC xyz [09]"), "abc xyz [09]");
  EXPECT_EQ(text().lowerCase("\u00c4\u00d6\u0416"), "\u00e4\u00f6\u0436");
  EXPECT_EQ(text().lowerCase("I"), "i");
  EXPECT_EQ(text().lowerCase("\u00c4I"), "\u00e4i");
  EXPECT_EQ(text().lowerCase("\U00010400"), "\U00010428");
  EXPECT_EQ(text().lowerCase("\u0130"), "i\u0307");
  EXPECT_EQ(text().lowerCase(""), "");
}

TEST(LowerCase, BrokenSequencesBecomeReplacementCharacters) {
  EXPECT_EQ(text().lowerCase("A\xFF"), "a\uFFFD");
  EXPECT_EQ(text().lowerCase("\xC3"), "\uFFFD");
}

TEST(LowerCase, KeepsNulBytes) {
  using namespace std::string_literals;
  EXPECT_EQ(text().lowerCase("A\0B"s), "a\0b"s);
  EXPECT_EQ(text().lowerCase("\u00c4\0B"s), "\u00e4\0b"s);
}

TEST(EqualIgnoringCase, ComparesLettersOfAnyScript) {
  EXPECT_TRUE(text().equalIgnoringCase("True", "tRUE"));
  EXPECT_TRUE(text().equalIgnoringCase("\u00c4b", "\u00e4B"));
  EXPECT_TRUE(text().equalIgnoringCase("", ""));
  EXPECT_FALSE(text().equalIgnoringCase("true", "true "));
  EXPECT_FALSE(text().equalIgnoringCase("a", ""));
  EXPECT_FALSE(text().equalIgnoringCase("\u00c4", "A"));
}

TEST(EqualIgnoringCase, ALetterEqualsItsComposedForm) { EXPECT_TRUE(text().equalIgnoringCase("\u00e9", "E\u0301")); }

TEST(CompareNumerically, RunsOfDigitsCountAsNumbers) {
  EXPECT_GT(text().compareNumerically("44.10", "44.9"), 0);
  EXPECT_LT(text().compareNumerically("44.9", "44.10"), 0);
  EXPECT_EQ(text().compareNumerically("44.10", "44.10"), 0);
  EXPECT_GT(text().compareNumerically("Forum_43.10.2", "Forum_43.9.11"), 0);
  EXPECT_LT(text().compareNumerically("a2b", "a10a"), 0);
}

TEST(CompareNumerically, NumbersMayHaveAllOf64Bits) {
  EXPECT_LT(text().compareNumerically("18446744073709551614", "18446744073709551615"), 0);
  EXPECT_LT(text().compareNumerically("9", "10000000000000000000"), 0);
}

TEST(CompareNumerically, LeadingZerosDoNotCount) {
  EXPECT_EQ(text().compareNumerically("1.02", "1.2"), 0);
  EXPECT_EQ(text().compareNumerically("000", "0"), 0);
  EXPECT_GT(text().compareNumerically("1.02a", "1.2"), 0);
}

TEST(CompareNumerically, OtherCharactersCompareByTheirUnits) {
  EXPECT_LT(text().compareNumerically("B", "a"), 0);
  EXPECT_LT(text().compareNumerically("a", "\u00e4"), 0);
  EXPECT_LT(text().compareNumerically("1", "a"), 0);
  EXPECT_GT(text().compareNumerically(":", "1"), 0);
}

TEST(CompareNumerically, AShorterTextStandsBeforeTheLongerOneItBegins) {
  EXPECT_LT(text().compareNumerically("", "a"), 0);
  EXPECT_LT(text().compareNumerically("44", "44.1"), 0);
  EXPECT_GT(text().compareNumerically("44.1", "44"), 0);
  EXPECT_EQ(text().compareNumerically("", ""), 0);
}

constexpr auto kForever = std::chrono::steady_clock::time_point::max();

Match find(std::string_view pattern, std::string_view input) { return text().findPattern(pattern, input, kForever); }

TEST(FindPattern, AfterItsDeadlineIsGivenUpAtOnce) {
  EXPECT_EQ(text().findPattern("a", "a", std::chrono::steady_clock::now()), Match::timeLimit);
  EXPECT_EQ(text().findPattern("(", "a", std::chrono::steady_clock::now()), Match::badPattern);
}

TEST(FindPattern, FindsAnywhereIgnoringCase) {
  EXPECT_EQ(find("foo", "a FOOd"), Match::matched);
  EXPECT_EQ(find("^bar$", "BAR"), Match::matched);
  EXPECT_EQ(find("^bar$", "bars"), Match::notMatched);
  EXPECT_EQ(find("\u00e4", "\u00c4"), Match::matched);
  EXPECT_EQ(find("^$", ""), Match::matched);
  EXPECT_EQ(find("a{2,3}\\d", "xaaa7"), Match::matched);
}

TEST(FindPattern, AnchorsStandForTheWholeText) {
  EXPECT_EQ(find("^b", "a\nb"), Match::notMatched);
  EXPECT_EQ(find("a.b", "a\nb"), Match::notMatched);
}

TEST(FindPattern, APatternThatDoesNotCompileIsBad) {
  for (const char* pattern : {"(", "[", "a{", "*", "?", "a{2,1}", "\\", "(?<x", ""}) {
    EXPECT_EQ(find(pattern, "text"), Match::badPattern) << pattern;
  }
}

TEST(FindPattern, ARunawaySearchEndsAfterItsTimeLimit) {
  const std::string input(200, 'a');
  for (const char* pattern : {"(a+)+b", "(a|aa)+$b", "(a*)*(a*)*(a*)*c"}) {
    const auto before = std::chrono::steady_clock::now();
    const Match match = text().findPattern(pattern, input, before + std::chrono::milliseconds(200));
    const auto took = std::chrono::steady_clock::now() - before;
    EXPECT_EQ(match, Match::timeLimit) << pattern;
    EXPECT_LT(took, std::chrono::seconds(3)) << pattern;
  }
}

TEST(FindPattern, ASearchThatNeedsTooMuchMemoryFindsNothing) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
  EXPECT_NE(text().findPattern("(.|\\n)*x", std::string(4u << 20, 'a'), deadline), Match::matched);
}

TEST(FindPattern, LongTextsAreSearchedToTheirEnd) {
  EXPECT_EQ(find("needle", std::string(100'000, 'a') + "Needle"), Match::matched);
}

TEST(Utf16Length, CountsUnits) {
  EXPECT_EQ(text().utf16Length(""), 0U);
  EXPECT_EQ(text().utf16Length("abc"), 3U);
  EXPECT_EQ(text().utf16Length("\u00e9"), 1U);
  EXPECT_EQ(text().utf16Length("\u20ac\u20ac"), 2U);
  EXPECT_EQ(text().utf16Length("\U0001F600"), 2U);
  EXPECT_EQ(text().utf16Length("a\xFFz"), 3U);
}

TEST(Decimal, GroupsByTheUsersLocale) {
  EXPECT_EQ(decimalsIn("en_US", {"1234567", "999", "-1000", "0", "9223372036854775807"}),
            "1,234,567\n999\n-1,000\n0\n9,223,372,036,854,775,807\n");
  EXPECT_EQ(decimalsIn("de_DE", {"1234567"}), "1.234.567\n");
  EXPECT_EQ(decimalsIn("de_CH", {"1234567"}), "1\u2019234\u2019567\n");
  EXPECT_EQ(decimalsIn("fr_FR", {"1234567"}), "1\u202f234\u202f567\n");
  EXPECT_EQ(decimalsIn("hi_IN", {"1234567"}), "12,34,567\n");
}

TEST(Decimal, RealsHaveAtMostThreeDigitsAfterThePoint) {
  EXPECT_EQ(decimalsIn("en_US", {"1234.5", "0.0625", "2.0"}), "1,234.5\n0.062\n2\n");
  EXPECT_EQ(decimalsIn("de_DE", {"1234.5678"}), "1.234,568\n");
}

TEST(Decimal, WhatIsNoNumberHasNoText) {
  EXPECT_EQ(text().decimal("1000"), "");
  EXPECT_EQ(text().decimal(TKSValue()), "");
  EXPECT_EQ(text().decimal(true), "1");
}

TEST(TextThreads, AllOperationsMayRunAtOnce) {
  const std::string decimal = text().decimal(1000);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(text().decimal(1000), decimal);
        EXPECT_EQ(find("b+", "aBb"), Match::matched);
        EXPECT_EQ(text().lowerCase("\u00c4"), "\u00e4");
        EXPECT_TRUE(text().equalIgnoringCase("\u00c4", "\u00e4"));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"
#include "tests/support/LogRecorder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tks::test::LogLine;
using tks::test::LogRecorder;

LogLine bad(const std::string& pattern, const std::string& text) {
  return {8, "Fail to get regular expression with pattern:" + pattern + "! Consider the checked string:" + text +
                 " is NOT matched."};
}

/// The engine as it is, but for how long a search may take.
class OtherSearches : public tks::platform::Text {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  std::string lowerCase(std::string_view text) override { return real().lowerCase(text); }
  bool equalIgnoringCase(std::string_view left, std::string_view right) override {
    return real().equalIgnoringCase(left, right);
  }
  int compareNumerically(std::string_view left, std::string_view right) override {
    return real().compareNumerically(left, right);
  }
  std::size_t utf16Length(std::string_view text) override { return real().utf16Length(text); }
  std::string decimal(const TKSValue& number) override { return real().decimal(number); }

 protected:
  tks::platform::Text& real() const { return replaced_.before(); }

 private:
  tks::platform::Replaced<tks::platform::Text> replaced_{*this};
};

constexpr std::string_view kRunaway = "(a+)+b";

/// All but the runaway one may take their time: a busy machine changes nothing.
class PatientSearches final : public OtherSearches {
 public:
  Match findPattern(std::string_view pattern, std::string_view text, TimePoint deadline) override {
    return real().findPattern(pattern, text, pattern == kRunaway ? deadline : TimePoint::max());
  }
};

/// Searches that never end before their deadline, and note how long that is away.
class EndlessSearches final : public OtherSearches {
 public:
  std::vector<TimePoint> deadlines;
  Match findPattern(std::string_view, std::string_view, TimePoint deadline) override {
    deadlines.push_back(deadline);
    return Match::timeLimit;
  }
};

class PatternList : public testing::Test {
 protected:
  PatientSearches patient_;
};

TEST_F(PatternList, MatchesWhenOnePatternIsFoundAnywhereInAnyCase) {
  const LogRecorder log;
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("foo, ^bar$", "BAR"));
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("foo,bar", "a Food"));
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("a.c", "xxabcxx"));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("foo, ^bar$", "bars"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PatternList, AnEmptyListOrTextMatchesNothing) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("", "text"));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("foo", ""));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("*", ""));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PatternList, AStarAloneMatchesEverything) {
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("*", "anything"));
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex(" *", "anything"));
  EXPECT_THAT(log.lines(), ElementsAre(bad("*", "anything")));
}

TEST_F(PatternList, PatternsAreTrimmed) {
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex(" \t^bar$\r\n", "bar"));
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("\u00a0\u3000^bar$\u2028 ", "bar"));
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("^a b$", "a b"));
}

TEST_F(PatternList, APatternThatDoesNotCompileEndsTheSearch) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("foo, (, bar", "bar"));
  EXPECT_THAT(log.lines(), ElementsAre(bad("(", "bar")));
}

TEST_F(PatternList, AnEarlierMatchComesBeforeAPatternThatDoesNotCompile) {
  const LogRecorder log;
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("bar,(", "bar"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PatternList, AnEmptyPatternDoesNotCompile) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("foo,,bar", "bar"));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("foo,", "bar"));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex(" ", "bar"));
  EXPECT_THAT(log.lines(), ElementsAre(bad("", "bar"), bad("", "bar"), bad("", "bar")));
}

TEST_F(PatternList, TheCheckedTextIsMaskedInTheLine) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("(", "jane@a.example"));
  EXPECT_THAT(log.lines(), ElementsAre(bad("(", "jan*@a.example")));
}

TEST_F(PatternList, ASearchThatTakesTooLongIsNoMatchAndTheNextPatternIsTried) {
  const LogRecorder log;
  const std::string text = std::string(200, 'a') + "c";
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("(a+)+b, c$", text));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("(a+)+b", text));
  const LogLine line{4, "Search for pattern:(a+)+b takes too long, consider as not matched."};
  EXPECT_THAT(log.lines(), ElementsAre(line, line));
}

TEST_F(PatternList, TheTimeLimitIsThatOfTheWholeCallAndEveryPatternHasItsShare) {
  EndlessSearches searches;
  std::string patterns = "a";
  for (int i = 1; i < 20; ++i) patterns += ",a";
  const auto before = std::chrono::steady_clock::now();
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex(patterns, "text"));
  const auto after = std::chrono::steady_clock::now();
  ASSERT_EQ(searches.deadlines.size(), 20u);
  // The last has all that is left; that the call took no time here gives the first a twentieth of it.
  EXPECT_GE(searches.deadlines.back(), before + std::chrono::milliseconds(200));
  EXPECT_LE(searches.deadlines.back(), after + std::chrono::milliseconds(200));
  EXPECT_GT(searches.deadlines.front(), before);
  EXPECT_LE(searches.deadlines.front(), after + std::chrono::milliseconds(10));
}

}  // namespace

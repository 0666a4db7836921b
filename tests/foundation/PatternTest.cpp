#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include <tksinterface/TKSUtilBase.h>

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

TEST(PatternList, MatchesWhenOnePatternIsFoundAnywhereInAnyCase) {
  const LogRecorder log;
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("foo, ^bar$", "BAR"));
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("foo,bar", "a Food"));
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("a.c", "xxabcxx"));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("foo, ^bar$", "bars"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(PatternList, AnEmptyListOrTextMatchesNothing) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("", "text"));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("foo", ""));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("*", ""));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(PatternList, AStarAloneMatchesEverything) {
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("*", "anything"));
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex(" *", "anything"));
  EXPECT_THAT(log.lines(), ElementsAre(bad("*", "anything")));
}

TEST(PatternList, PatternsAreTrimmed) {
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex(" \t^bar$\r\n", "bar"));
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("\u00a0\u3000^bar$\u2028 ", "bar"));
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("^a b$", "a b"));
}

TEST(PatternList, APatternThatDoesNotCompileEndsTheSearch) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("foo, (, bar", "bar"));
  EXPECT_THAT(log.lines(), ElementsAre(bad("(", "bar")));
}

TEST(PatternList, AnEarlierMatchComesBeforeAPatternThatDoesNotCompile) {
  const LogRecorder log;
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("bar,(", "bar"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(PatternList, AnEmptyPatternDoesNotCompile) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("foo,,bar", "bar"));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("foo,", "bar"));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex(" ", "bar"));
  EXPECT_THAT(log.lines(), ElementsAre(bad("", "bar"), bad("", "bar"), bad("", "bar")));
}

TEST(PatternList, TheCheckedTextIsMaskedInTheLine) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("(", "jane@a.example"));
  EXPECT_THAT(log.lines(), ElementsAre(bad("(", "jan*@a.example")));
}

TEST(PatternList, ASearchThatTakesTooLongIsNoMatchAndTheNextPatternIsTried) {
  const LogRecorder log;
  const std::string text = std::string(200, 'a') + "c";
  EXPECT_TRUE(TKSUtilBase::isMatchedToRegex("(a+)+b, c$", text));
  EXPECT_FALSE(TKSUtilBase::isMatchedToRegex("(a+)+b", text));
  const LogLine line{4, "Search for pattern:(a+)+b takes too long, consider as not matched."};
  EXPECT_THAT(log.lines(), ElementsAre(line, line));
}

}  // namespace

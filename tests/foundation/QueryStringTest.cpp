#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include <tksinterface/TKSUtilBase.h>

#include "tests/support/LogRecorder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tks::test::LogLine;
using tks::test::LogRecorder;

TEST(Query, IsADictionaryOfTexts) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::getQueryDict("a=1&b=two"), (TKSDictionary{{"a", "1"}, {"b", "two"}}));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Query, TheValueOfParamKeepsItsEqualsSigns) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::getQueryDict("param=a=b&x=1"), (TKSDictionary{{"param", "a=b"}, {"x", "1"}}));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "getParamValue: a=b forKey: param"}));
}

TEST(Query, AnEmptyParamIsTheEmptyText) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::getQueryDict("param="), (TKSDictionary{{"param", ""}}));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "getParamValue:  forKey: param"}));
}

TEST(Query, TheValueOfParamIsMaskedInTheLine) {
  const LogRecorder log;
  TKSUtilBase::getQueryDict("param=jane@a.example");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "getParamValue: jan*@a.example forKey: param"}));
}

TEST(Query, OtherValuesBeginAfterTheFirstEqualsSign) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::getQueryDict("x=a=b&params=c=d"), (TKSDictionary{{"x", "a=b"}, {"params", "c=d"}}));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(Query, AnItemWithoutAnEqualsSignIsSkipped) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::getQueryDict("flag&x=1"), (TKSDictionary{{"x", "1"}}));
  EXPECT_EQ(TKSUtilBase::getQueryDict("x=1&"), (TKSDictionary{{"x", "1"}}));
  EXPECT_EQ(TKSUtilBase::getQueryDict("param&x=1"), (TKSDictionary{{"x", "1"}}));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{4, "Could not get key/value with item: flag"},
                                       LogLine{4, "Could not get key/value with item: "},
                                       LogLine{4, "Could not get key/value with item: param"}));
}

TEST(Query, EmptyValuesAndKeysAreStored) {
  EXPECT_EQ(TKSUtilBase::getQueryDict("x="), (TKSDictionary{{"x", ""}}));
  EXPECT_EQ(TKSUtilBase::getQueryDict("=1"), (TKSDictionary{{"", "1"}}));
}

TEST(Query, ALaterItemReplacesAnEarlierOneWithItsKey) {
  EXPECT_EQ(TKSUtilBase::getQueryDict("x=1&y=2&x=3&param=4&param=5"),
            (TKSDictionary{{"x", "3"}, {"y", "2"}, {"param", "5"}}));
}

TEST(Query, NothingIsDecoded) {
  EXPECT_EQ(TKSUtilBase::getQueryDict("a%20b=c+d%26"), (TKSDictionary{{"a%20b", "c+d%26"}}));
}

TEST(Query, WithoutAnyItemThereIsNoDictionary) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::getQueryDict(""), std::nullopt);
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(TKSUtilBase::getQueryDict("flag"), std::nullopt);
  EXPECT_EQ(TKSUtilBase::getQueryDict("&"), std::nullopt);
  EXPECT_THAT(log.texts(4), ElementsAre("Could not get key/value with item: flag",
                                        "Could not get key/value with item: ", "Could not get key/value with item: "));
}

TEST(URLQuery, IsTheQueryOfTheURL) {
  EXPECT_EQ(TKSUtilBase::getURLQueryDict("https://a.example/x?a=1&b=2"), (TKSDictionary{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(TKSUtilBase::getURLQueryDict("https://a.example/x?a=1#b=2"), (TKSDictionary{{"a", "1"}}));
  EXPECT_EQ(TKSUtilBase::getURLQueryDict("scheme:x?a=1?b=2"), (TKSDictionary{{"a", "1?b=2"}}));
}

TEST(URLQuery, AMissingURLIsLogged) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::getURLQueryDict(""), std::nullopt);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{4, "URL string empty or nil, fail to get query dict."}));
}

TEST(URLQuery, AURLWithoutAQueryIsLoggedMasked) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::getURLQueryDict("https://a.example/meet/jsmith"), std::nullopt);
  EXPECT_EQ(TKSUtilBase::getURLQueryDict("https://a.example/x?"), std::nullopt);
  EXPECT_EQ(TKSUtilBase::getURLQueryDict("https://a.example/x#?a=1"), std::nullopt);
  EXPECT_EQ(TKSUtilBase::getURLQueryDict("no URL ?a=1"), std::nullopt);
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "Could not get query string from URL: https://a.example/meet/jsm***"},
                                       LogLine{2, "Could not get query string from URL: https://a.example/x?"},
                                       LogLine{2, "Could not get query string from URL: https://a.example/x#?a=1"},
                                       LogLine{2, "Could not get query string from URL: no URL ?a=1"}));
}

// ---- Against the rules written down once more, as simply as possible.

std::optional<TKSDictionary> simpleQuery(const std::string& query) {
  if (query.empty()) return std::nullopt;
  std::vector<std::string> items(1);
  for (const char byte : query) {
    if (byte == '&') {
      items.emplace_back();
    } else {
      items.back() += byte;
    }
  }
  TKSDictionary result;
  for (const std::string& item : items) {
    if (item.substr(0, 6) == "param=") {
      result.set("param", item.substr(6));
    } else if (item.find('=') != std::string::npos) {
      result.set(item.substr(0, item.find('=')), item.substr(item.find('=') + 1));
    }
  }
  if (result.empty()) return std::nullopt;
  return result;
}

TEST(Query, AgreesWithASimpleVersionOfTheRules) {
  std::mt19937 random(1);
  const auto below = [&random](std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
  };
  const std::vector<std::string> pieces = {"&", "&",      "=",    "=",   "param", "param=", "a",
                                           "b", "\u20ac", "\xFF", "%26", "+",     " "};
  for (int i = 0; i < 50000; ++i) {
    std::string query;
    for (std::size_t left = below(12); left > 0; --left) query += pieces[below(pieces.size())];
    ASSERT_EQ(TKSUtilBase::getQueryDict(query), simpleQuery(query)) << query;
  }
}

}  // namespace

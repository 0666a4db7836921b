#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "tests/support/LogRecorder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tks::test::LogLine;
using tks::test::LogRecorder;

using Text = std::optional<std::string>;

TEST(DecodeBase64, GivesTheTextThatItStandsFor) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64("YWJjZA=="), Text("abcd"));
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64("YWJjZGU="), Text("abcde"));
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64("YWJjZGVm"), Text("abcdef"));
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64("4oKs4oKs"), Text("\u20ac\u20ac"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodeBase64, WhatIsNoTextOrEmptyGivesNothing) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64(TKSValue()), std::nullopt);
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64(""), std::nullopt);
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64(7), std::nullopt);
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64(TKSNull()), std::nullopt);
  const LogLine line{4, "Origin is not string, or is empty or nil, no way to check base64 decode."};
  EXPECT_THAT(log.lines(), ElementsAre(line, line, line, line));
}

TEST(DecodeBase64, ShortTextsAreNeverDecoded) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64("YWJj"), Text("YWJj"));
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64("a"), Text("a"));
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64("\u20ac\u20ac\u20ac\u20ac"), Text("\u20ac\u20ac\u20ac\u20ac"));
  EXPECT_THAT(log.lines(),
              ElementsAre(LogLine{4, "Do not try decode string length no more than 4: YWJj"},
                          LogLine{4, "Do not try decode string length no more than 4: a"},
                          LogLine{4, "Do not try decode string length no more than 4: \u20ac\u20ac\u20ac\u20ac"}));
}

TEST(DecodeBase64, WhatDoesNotLookLikeItStaysAsItIs) {
  for (const char* text : {"YWJjZ", "YWJj ZGVm", "YWJjZGVm\n", "YW=jZGVm", "=YWJjZGV",
                           "YWJjZ===", "YWJj====", "YWJjZG-_", "YWJj\u00e4ZGV", "hello, world"}) {
    const LogRecorder log;
    EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64(text), Text(text)) << text;
    EXPECT_EQ(log.lines(), (std::vector<LogLine>{{2, "String format not match base64 format: " + std::string(text)}}));
  }
}

TEST(DecodeBase64, BytesThatAreNoTextLeaveTheInputAsItIs) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64("/////w=="), Text("/////w=="));
  EXPECT_EQ(TKSUtilBase::checkAndDecodeBase64("password"), Text("password"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(DecodeBase64, LinesAreMasked) {
  const LogRecorder log;
  TKSUtilBase::checkAndDecodeBase64("jane@a.example");
  TKSUtilBase::checkAndDecodeBase64("ab@x");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{2, "String format not match base64 format: jan*@a.example"},
                                       LogLine{4, "Do not try decode string length no more than 4: **@x"}));
}

TEST(EncodedParameters, AreTheJSONObjectUnderTheKey) {
  TKSError error;
  const TKSDictionary encoded{{"param", "eyJhIjoiYiJ9"}, {"list", "WzEs\nMl0="}};
  EXPECT_EQ(TKSUtilBase::getParamsFromEncodedDic(encoded, "param", &error), TKSValue(TKSDictionary{{"a", "b"}}));
  EXPECT_EQ(TKSUtilBase::getParamsFromEncodedDic(encoded, "list", &error), TKSValue(TKSArray{1, 2}));
  EXPECT_EQ(TKSUtilBase::getParamsFromEncodedDic(encoded, "list"), TKSValue(TKSArray{1, 2}));
  EXPECT_EQ(error, TKSError());
}

TEST(EncodedParameters, AMissingTextIsAnErrorOfThisLibrary) {
  const TKSDictionary encoded{{"number", 7}, {"empty", ""}, {"padding", "YWJjZA="}, {"bytes", "/////w=="}};
  for (const char* key : {"absent", "number", "empty", "padding", "bytes"}) {
    TKSError error;
    EXPECT_TRUE(TKSUtilBase::getParamsFromEncodedDic(encoded, key, &error).isNothing()) << key;
    EXPECT_EQ(error.domain, TKSUtilErrorDomain) << key;
    EXPECT_EQ(error.code, 0) << key;
    EXPECT_FALSE(error.localizedDescription.empty()) << key;
    EXPECT_TRUE(TKSUtilBase::getParamsFromEncodedDic(encoded, key).isNothing()) << key;
  }
}

TEST(EncodedParameters, TextThatIsNoJSONIsTheReadersError) {
  TKSError error;
  EXPECT_TRUE(TKSUtilBase::getParamsFromEncodedDic({{"param", "YWJjZA=="}}, "param", &error).isNothing());
  TKSError readers;
  TKSUtilBase::JSONStringToObject("abcd", &readers);
  EXPECT_EQ(error, readers);
  EXPECT_FALSE(error.localizedDescription.empty());
}

TEST(EncodeURL, KeepsUnreservedCharactersAndWritesBlanksAsPlus) {
  EXPECT_EQ(TKSUtilBase::encodeURLString("AZaz09-._~"), "AZaz09-._~");
  EXPECT_EQ(TKSUtilBase::encodeURLString("a b"), "a+b");
  EXPECT_EQ(TKSUtilBase::encodeURLString("/+?&=%"), "%2F%2B%3F%26%3D%25");
  EXPECT_EQ(TKSUtilBase::encodeURLString(std::string("\0\n\x7F", 3)), "%00%0A%7F");
  EXPECT_EQ(TKSUtilBase::encodeURLString(""), "");
}

TEST(EncodeURL, VisitsAsManyBytesAsTheTextHasUtf16Units) {
  EXPECT_EQ(TKSUtilBase::encodeURLString("\u00e9"), "%C3");
  EXPECT_EQ(TKSUtilBase::encodeURLString("\u20acab"), "%E2%82%AC");
  EXPECT_EQ(TKSUtilBase::encodeURLString("\U0001F600"), "%F0%9F");
  EXPECT_EQ(TKSUtilBase::encodeURLString("ab\u00e9cd"), "ab%C3%A9c");
}

}  // namespace

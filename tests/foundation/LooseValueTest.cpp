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

TEST(CaseInsensitiveTrue, IsATextThatEqualsACandidate) {
  const LogRecorder log;
  EXPECT_TRUE(TKSUtilBase::isCaseInsensitiveTrue("TRUE", {"1", "true"}));
  EXPECT_TRUE(TKSUtilBase::isCaseInsensitiveTrue("1", {"1", "true"}));
  EXPECT_TRUE(TKSUtilBase::isCaseInsensitiveTrue("\u00c4", {"\u00e4"}));
  EXPECT_FALSE(TKSUtilBase::isCaseInsensitiveTrue("true ", {"1", "true"}));
  EXPECT_FALSE(TKSUtilBase::isCaseInsensitiveTrue("true", {}));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(CaseInsensitiveTrue, MissingAndEmptyTextsAreFalse) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isCaseInsensitiveTrue(TKSValue(), {"", "true"}));
  EXPECT_FALSE(TKSUtilBase::isCaseInsensitiveTrue("", {"", "true"}));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(CaseInsensitiveTrue, OtherValuesAreFalseAndLoggedWithTheirClass) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::isCaseInsensitiveTrue(1, {"1"}));
  EXPECT_FALSE(TKSUtilBase::isCaseInsensitiveTrue(true, {"1"}));
  EXPECT_FALSE(TKSUtilBase::isCaseInsensitiveTrue(TKSNull(), {"1"}));
  EXPECT_FALSE(TKSUtilBase::isCaseInsensitiveTrue(TKSValue(TKSArray()), {"1"}));
  EXPECT_THAT(
      log.lines(),
      ElementsAre(LogLine{4, "Input first argument:1 is NOT NSString(class:number). Set NO as comparing result."},
                  LogLine{4, "Input first argument:1 is NOT NSString(class:boolean). Set NO as comparing result."},
                  LogLine{4, "Input first argument:<null> is NOT NSString(class:null). Set NO as comparing result."},
                  LogLine{4, "Input first argument:" + TKSArray().description() +
                                 " is NOT NSString(class:array). Set NO as comparing result."}));
}

TEST(NumberText, ConsistsOfAsciiDigitsOnly) {
  const LogRecorder log;
  EXPECT_TRUE(TKSUtilBase::canBeTransferedToNumFromString("007"));
  EXPECT_TRUE(TKSUtilBase::canBeTransferedToNumFromString("123456789012345678901234567890"));
  for (const char* text : {"12a", "-1", "+1", "1.5", " 1", "1 ", "1\n", "\u0664", "0x1"}) {
    EXPECT_FALSE(TKSUtilBase::canBeTransferedToNumFromString(text)) << text;
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(NumberText, WhatIsNoTextIsRejectedWithAMessageOfItsOwn) {
  const LogRecorder log;
  EXPECT_FALSE(TKSUtilBase::canBeTransferedToNumFromString(TKSValue()));
  EXPECT_FALSE(TKSUtilBase::canBeTransferedToNumFromString(7));
  EXPECT_FALSE(TKSUtilBase::canBeTransferedToNumFromString(TKSNull()));
  EXPECT_FALSE(TKSUtilBase::canBeTransferedToNumFromString(""));
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{4, "Cannot be transfered to num because input is nil!"},
                                       LogLine{4, "Cannot be transfered to num because input is not string!"},
                                       LogLine{4, "Cannot be transfered to num because input is not string!"},
                                       LogLine{4, "Cannot be transfered to num because input is empty!"}));
}

TEST(TrueValue, IsANumberThatIsNotZeroOrATextThatSaysSo) {
  EXPECT_TRUE(TKSUtilBase::isTrueValueFromId(true));
  EXPECT_TRUE(TKSUtilBase::isTrueValueFromId(1));
  EXPECT_TRUE(TKSUtilBase::isTrueValueFromId(-7));
  EXPECT_TRUE(TKSUtilBase::isTrueValueFromId(0.5));
  EXPECT_TRUE(TKSUtilBase::isTrueValueFromId("1"));
  EXPECT_TRUE(TKSUtilBase::isTrueValueFromId("TrUe"));
}

TEST(TrueValue, IsNothingElse) {
  EXPECT_FALSE(TKSUtilBase::isTrueValueFromId(TKSValue()));
  EXPECT_FALSE(TKSUtilBase::isTrueValueFromId(TKSNull()));
  EXPECT_FALSE(TKSUtilBase::isTrueValueFromId(false));
  EXPECT_FALSE(TKSUtilBase::isTrueValueFromId(0));
  EXPECT_FALSE(TKSUtilBase::isTrueValueFromId(0.0));
  for (const char* text : {"", "0", "yes", "true ", "01", "2", "false"}) {
    EXPECT_FALSE(TKSUtilBase::isTrueValueFromId(text)) << text;
  }
  EXPECT_FALSE(TKSUtilBase::isTrueValueFromId(TKSValue(TKSArray{1})));
  EXPECT_FALSE(TKSUtilBase::isTrueValueFromId(TKSValue(TKSDictionary{{"a", 1}})));
}

}  // namespace

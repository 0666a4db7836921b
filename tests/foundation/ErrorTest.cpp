#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"
#include "tests/support/FakeJson.h"
#include "tests/support/LogRecorder.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::ThrowingReader;

TEST(InterfaceError, HasItsMessageDomainAndCode) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::generateTKSInterfaceError("no launcher", "some.domain", -3),
            (TKSError{"some.domain", -3, "no launcher"}));
  EXPECT_EQ(TKSUtilBase::generateTKSInterfaceDefaultError("no launcher"),
            (TKSError{"TKSIDefaultDomain", 0, "no launcher"}));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(InterfaceError, WithoutADomainHasTheDefaultOne) {
  EXPECT_EQ(TKSUtilBase::generateTKSInterfaceError("text", "", 7), (TKSError{"TKSIDefaultDomain", 7, "text"}));
}

TEST(InterfaceError, WithoutAMessageIsUnknown) {
  const LogRecorder log;
  EXPECT_EQ(TKSUtilBase::generateTKSInterfaceError("", "some.domain", 7),
            (TKSError{"some.domain", 7, "Unknown error."}));
  EXPECT_EQ(TKSUtilBase::generateTKSInterfaceDefaultError(""), (TKSError{"TKSIDefaultDomain", 0, "Unknown error."}));
  const LogLine line{4, "Error info incorrect: , set as 'Unknown error'"};
  EXPECT_THAT(log.lines(), ElementsAre(line, line));
}

TEST(InterfaceError, MadeByAHostHasNoReason) {
  const TKSError error = TKSUtilBase::generateTKSInterfaceError("no launcher", "some.domain", -3);
  EXPECT_EQ(error.reason, TKSErrorReason::unspecified);
  EXPECT_EQ(error.recoverySuggestion, "");
}

TEST(Error, ComparesAndDescribesItselfByDomainCodeAndText) {
  TKSError left{"some.domain", 1, "text"};
  TKSError right = left;
  right.reason = TKSErrorReason::notTrusted;
  right.recoverySuggestion = "Do something.";
  EXPECT_EQ(left, right);
  EXPECT_EQ(right.description(), "Error Domain=some.domain Code=1 \"text\"");
  for (TKSError other : {TKSError{"other.domain", 1, "text"}, TKSError{"some.domain", 2, "text"},
                         TKSError{"some.domain", 1, "other text"}}) {
    EXPECT_NE(left, other);
  }
}

/// Every reason with its number and name, which hosts keep in files and pass to other languages.
struct NamedReason {
  TKSErrorReason reason;
  std::int32_t number;
  std::string_view name;
};

constexpr NamedReason kReasons[] = {
    {TKSErrorReason::unspecified, 0, "unspecified"},
    {TKSErrorReason::notInstalled, 1, "notInstalled"},
    {TKSErrorReason::notTrusted, 2, "notTrusted"},
    {TKSErrorReason::broken, 3, "broken"},
    {TKSErrorReason::endedEarly, 4, "endedEarly"},
    {TKSErrorReason::notAnswered, 5, "notAnswered"},
    {TKSErrorReason::badMessage, 6, "badMessage"},
    {TKSErrorReason::noRoom, 7, "noRoom"},
    {TKSErrorReason::noPermission, 8, "noPermission"},
    {TKSErrorReason::toolMissing, 9, "toolMissing"},
    {TKSErrorReason::busy, 10, "busy"},
    {TKSErrorReason::cancelled, 11, "cancelled"},
    {TKSErrorReason::refusedByLauncher, 12, "refusedByLauncher"},
    {TKSErrorReason::channelFailed, 13, "channelFailed"},
    {TKSErrorReason::invalidArgument, 14, "invalidArgument"},
    {TKSErrorReason::notFound, 15, "notFound"},
    {TKSErrorReason::alreadyExists, 16, "alreadyExists"},
    {TKSErrorReason::outOfResources, 17, "outOfResources"},
    {TKSErrorReason::tooLarge, 18, "tooLarge"},
    {TKSErrorReason::networkFailed, 19, "networkFailed"},
    {TKSErrorReason::serverRefused, 20, "serverRefused"},
    {TKSErrorReason::wrongVersion, 21, "wrongVersion"},
    {TKSErrorReason::noSafeFolder, 22, "noSafeFolder"},
    {TKSErrorReason::systemFailed, 23, "systemFailed"},
};

TEST(ErrorReason, KeepsItsNumberAndName) {
  for (const NamedReason& row : kReasons) {
    EXPECT_EQ(static_cast<std::int32_t>(row.reason), row.number) << row.name;
    EXPECT_EQ(TKSErrorReasonName(row.reason), row.name);
    EXPECT_EQ(TKSErrorReasonSuggestion(row.reason).empty(), row.reason == TKSErrorReason::unspecified) << row.name;
  }
}

TEST(ErrorReason, OfAnUnknownNumberIsUnspecified) {
  for (const std::int32_t number : {-1, 24, 1000, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(TKSErrorReasonName(static_cast<TKSErrorReason>(number)), "unspecified") << number;
    EXPECT_EQ(TKSErrorReasonSuggestion(static_cast<TKSErrorReason>(number)), "") << number;
  }
}

TEST(ErrorSlots, AreLeftAloneByWhatSucceeds) {
  const TKSError before = {"some.domain", 7, "from before", TKSErrorReason::busy, "Wait."};
  TKSError error = before;
  ASSERT_FALSE(TKSUtilBase::JSONStringToObject("{}", &error).isNothing());
  ASSERT_TRUE(TKSUtilBase::objectToJSONString(TKSArray(), &error));
  ASSERT_FALSE(TKSUtilBase::getParamsFromEncodedDic({{"a", "e30="}}, "a", &error).isNothing());
  EXPECT_EQ(error, before);
  EXPECT_EQ(error.reason, before.reason);
  EXPECT_EQ(error.recoverySuggestion, before.recoverySuggestion);
}

TEST(ErrorSlots, OfMissingTextsTellAnInvalidArgumentAndOfBadOnesABadMessage) {
  TKSError error;
  TKSUtilBase::JSONStringToObject("", &error);
  EXPECT_EQ(error.reason, TKSErrorReason::invalidArgument);
  TKSUtilBase::JSONStringToObject("{", &error);
  EXPECT_EQ(error.reason, TKSErrorReason::badMessage);
  TKSUtilBase::objectToJSONString(TKSArray{TKSDate{}}, &error);
  EXPECT_EQ(error.reason, TKSErrorReason::invalidArgument);
  EXPECT_EQ(error.recoverySuggestion, TKSErrorReasonSuggestion(error.reason));
}

TEST(JSONText, BecomesAnObject) {
  TKSError error;
  EXPECT_EQ(TKSUtilBase::JSONStringToObject(R"({"a":[1,true,null,"b"]})", &error),
            TKSValue(TKSDictionary{{"a", TKSArray{1, true, TKSNull(), "b"}}}));
  EXPECT_EQ(TKSUtilBase::JSONStringToObject("[]"), TKSValue(TKSArray()));
  EXPECT_EQ(error, TKSError());
}

TEST(JSONText, ThatCannotBeReadIsTheReadersError) {
  for (const char* text : {"{", "{\"a\":1} x", "7", "text", " "}) {
    TKSError error;
    EXPECT_TRUE(TKSUtilBase::JSONStringToObject(text, &error).isNothing()) << text;
    TKSError readers;
    tks::platform::json().parse(text, &readers);
    EXPECT_EQ(error, readers) << text;
    EXPECT_FALSE(error.localizedDescription.empty()) << text;
    EXPECT_TRUE(TKSUtilBase::JSONStringToObject(text).isNothing()) << text;
  }
}

TEST(JSONText, ThatIsMissingIsAnErrorOfThisLibrary) {
  TKSError error;
  EXPECT_TRUE(TKSUtilBase::JSONStringToObject("", &error).isNothing());
  EXPECT_EQ(error, (TKSError{std::string(TKSUtilErrorDomain), 0, "JSON text is missing"}));
  EXPECT_TRUE(TKSUtilBase::JSONStringToObject("").isNothing());
}

TEST(JSONText, AReaderThatThrowsIsAnErrorOfThisLibrary) {
  const ThrowingReader reader(std::runtime_error("reader is broken"));
  TKSError error;
  EXPECT_TRUE(TKSUtilBase::JSONStringToObject("{}", &error).isNothing());
  EXPECT_EQ(error, (TKSError{std::string(TKSUtilErrorDomain), 0, "reader is broken"}));
  EXPECT_NO_THROW(TKSUtilBase::JSONStringToObject("{}"));
}

TEST(JSONText, AReaderWithoutMemoryIsAnError) {
  const ThrowingReader reader{std::bad_alloc()};
  TKSError error;
  EXPECT_TRUE(TKSUtilBase::JSONStringToObject("{}", &error).isNothing());
  EXPECT_EQ(error.localizedDescription, "Out of memory");
  EXPECT_EQ(error.reason, TKSErrorReason::outOfResources);
  EXPECT_EQ(error.recoverySuggestion, TKSErrorReasonSuggestion(TKSErrorReason::outOfResources));
}

TEST(JSONText, IsMadeOfAnObject) {
  TKSError error;
  const TKSDictionary object{{"b", TKSArray{1, 2.5, TKSNull()}}, {"a", "x/y \"\u20ac\""}, {"c", true}};
  EXPECT_EQ(TKSUtilBase::objectToJSONString(object, &error),
            std::optional<std::string>(R"({"a":"x/y \"€\"","b":[1,2.5,null],"c":true})"));
  EXPECT_EQ(TKSUtilBase::objectToJSONString(TKSValue(TKSArray())), std::optional<std::string>("[]"));
  EXPECT_EQ(error, TKSError());
}

TEST(JSONText, WhatJSONCannotHoldIsAnErrorOfThisLibrary) {
  const TKSValue values[] = {
      TKSValue(),
      "text",
      7,
      TKSNull(),
      TKSValue(TKSArray{TKSData{1, 2}}),
      TKSValue(TKSArray{TKSDate{}}),
      TKSValue(TKSArray{std::numeric_limits<double>::infinity()}),
      TKSValue(TKSDictionary{{"a", "\xFF"}}),
  };
  for (const TKSValue& value : values) {
    TKSError error;
    EXPECT_EQ(TKSUtilBase::objectToJSONString(value, &error), std::nullopt) << value.description();
    EXPECT_EQ(error.domain, TKSUtilErrorDomain) << value.description();
    EXPECT_EQ(error.code, 0) << value.description();
    EXPECT_FALSE(error.localizedDescription.empty()) << value.description();
    EXPECT_EQ(TKSUtilBase::objectToJSONString(value), std::nullopt) << value.description();
  }
}

}  // namespace

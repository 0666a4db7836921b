#include <tksinterface/TKSMessage.h>

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <string>
#include <tuple>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageVocabulary.h>

namespace {

using namespace std::string_literals;
using testing::HasSubstr;
using testing::Optional;

constexpr std::string_view kNotJSON = "Passing nil or not an valid JSON string when try to parse JSON for TKSMessge.";

TKSMessage parsed(std::string_view json) {
  TKSMessage message;
  TKSError error;
  EXPECT_TRUE(message.parseJSONString(json, &error)) << json << ": " << error.localizedDescription;
  EXPECT_EQ(error, TKSError()) << json;
  return message;
}

std::string failure(std::string_view json) {
  TKSMessage message;
  TKSError error;
  EXPECT_FALSE(message.parseJSONString(json, &error)) << json;
  EXPECT_EQ(error.domain, commonErrorDomain);
  EXPECT_EQ(error.code, 0);
  return error.localizedDescription;
}

// Parsing.

TEST(TKSMessage, IsEmptyAtFirst) {
  const TKSMessage message;
  EXPECT_FALSE(message.messageType);
  EXPECT_FALSE(message.token);
  EXPECT_FALSE(message.domain);
  EXPECT_TRUE(message.message.isNothing());
  EXPECT_TRUE(message.joinParams.empty());
}

TEST(TKSMessage, AllFourMembersAreRead) {
  const TKSMessage message = parsed(
      R"({"message_type":"launch_meeting","token":"T","domain":"https://a.example","message":{"k":"v"},"more":1})");
  EXPECT_THAT(message.messageType, Optional("launch_meeting"s));
  EXPECT_THAT(message.token, Optional("T"s));
  EXPECT_THAT(message.domain, Optional("https://a.example"s));
  EXPECT_EQ(message.message, TKSValue(TKSDictionary{{"k", "v"}}));
}

TEST(TKSMessage, TokenAndDomainMayBeAbsent) {
  const TKSMessage message = parsed(R"({"message_type":"hello_ack","message":"hello_ack"})");
  EXPECT_THAT(message.messageType, Optional("hello_ack"s));
  EXPECT_FALSE(message.token);
  EXPECT_FALSE(message.domain);
  EXPECT_EQ(message.message, TKSValue("hello_ack"));
}

TEST(TKSMessage, TokenOrDomainThatIsNoTextCountsAsAbsent) {
  const TKSMessage message = parsed(R"({"message_type":"a","message":"b","token":7,"domain":{"x":1}})");
  EXPECT_FALSE(message.token);
  EXPECT_FALSE(message.domain);
}

TEST(TKSMessage, EmptyTextsArePresent) {
  const TKSMessage message = parsed(R"({"message_type":"","message":"","token":"","domain":""})");
  EXPECT_THAT(message.messageType, Optional(""s));
  EXPECT_THAT(message.token, Optional(""s));
  EXPECT_THAT(message.domain, Optional(""s));
  EXPECT_EQ(message.message, TKSValue(""));
}

TEST(TKSMessage, MemberNamesOfTheTopLevelAreMatchedExactly) {
  EXPECT_EQ(failure(R"({"Message_Type":"a","message":"b"})"), "Message type empty when TKSMessage parseJSONString:.");
}

TEST(TKSMessage, ParsingReplacesWhatTheRecordHeld) {
  TKSMessage message = parsed(R"({"message_type":"a","message":"b","token":"T","domain":"D"})");
  message.joinParams.set("kept", "beside");
  ASSERT_TRUE(message.parseJSONString(R"({"message_type":"c","message":{"d":1}})"));
  EXPECT_THAT(message.messageType, Optional("c"s));
  EXPECT_FALSE(message.token);
  EXPECT_FALSE(message.domain);
  EXPECT_EQ(message.message, TKSValue(TKSDictionary{{"d", 1}}));
  EXPECT_EQ(message.joinParams, (TKSDictionary{{"kept", "beside"}}));
}

TEST(TKSMessage, FailedParsingLeavesTheRecordAsItWas) {
  for (const char* broken : {"", "no json", "[1]", R"({"message":"b"})", R"({"message_type":"x","token":"new"})"}) {
    TKSMessage message = parsed(R"({"message_type":"a","message":"b","token":"T","domain":"D"})");
    EXPECT_FALSE(message.parseJSONString(broken));
    EXPECT_THAT(message.messageType, Optional("a"s));
    EXPECT_THAT(message.token, Optional("T"s));
    EXPECT_THAT(message.domain, Optional("D"s));
    EXPECT_EQ(message.message, TKSValue("b"));
  }
}

TEST(TKSMessage, TextThatIsNotJSONFails) {
  for (const std::string& text :
       {""s, " "s, "hello"s, "{"s, R"({"message_type":"a","message":"b"})"s.substr(0, 20),
        R"({"message_type":"a","message":"b"} x)"s, R"({"message_type":"a","message":"b"}{})"s, "\"text\""s, "1"s,
        "null"s, "{\"message_type\":\"\xFF\",\"message\":\"b\"}"s, R"({"message_type":"\ud800","message":"b"})"s,
        std::string(200000, '[')}) {
    EXPECT_EQ(failure(text), kNotJSON) << text.substr(0, 40);
  }
}

TEST(TKSMessage, ArrayAtTheTopLevelIsNamedInTheFailure) {
  EXPECT_EQ(failure(R"([{"message_type":"a","message":"b"}])"),
            "Only accept dictionary message string, while passing type: array");
}

TEST(TKSMessage, MissingTypeFails) {
  for (const char* json : {R"({"message":"b"})", R"({"message_type":null,"message":"b"})", R"({})",
                           R"({"message_type":7,"message":"b"})", R"({"message_type":["a"],"message":"b"})"}) {
    EXPECT_EQ(failure(json), "Message type empty when TKSMessage parseJSONString:.") << json;
  }
}

TEST(TKSMessage, TypeOfAMegabyteIsKept) {
  const std::string type(1 << 20, 't');
  EXPECT_THAT(parsed("{\"message_type\":\"" + type + "\",\"message\":\"\"}").messageType, Optional(type));
}

TEST(TKSMessage, BodyOfAWrongKindIsNamedInTheFailure) {
  const std::tuple<const char*, const char*> rows[] = {
      {R"({"message_type":"hello_ack"})", "(null)"},         {R"({"message_type":"a","message":null})", "null"},
      {R"({"message_type":"a","message":7})", "number"},     {R"({"message_type":"a","message":7.5})", "number"},
      {R"({"message_type":"a","message":true})", "boolean"}, {R"({"message_type":"a","message":[{"b":1}]})", "array"},
  };
  for (const auto& [json, name] : rows) {
    EXPECT_EQ(failure(json), "Message data only accept dictionary or string, while receiving: "s + name);
  }
}

TEST(TKSMessage, BodyTextWithoutBothBracesIsKeptUnread) {
  for (const char* body : {"plain", "{ open", "close }", ""}) {
    const TKSValue text(body);
    EXPECT_EQ(parsed("{\"message_type\":\"a\",\"message\":\""s + body + "\"}").message, text);
  }
}

TEST(TKSMessage, BodyTextThatHoldsAnObjectBecomesThatObject) {
  const TKSMessage message =
      parsed(R"({"message_type":"error","message":"{\"Error_Code\":\"2005\",\"ERROR_MESSAGE\":\"Failed\"}"})");
  EXPECT_EQ(message.message, TKSValue(TKSDictionary{{"error_code", "2005"}, {"error_message", "Failed"}}));
}

TEST(TKSMessage, BodyTextThatOnlyLooksLikeJSONIsKeptAndLeavesTheReadersError) {
  TKSMessage message;
  TKSError error;
  ASSERT_TRUE(message.parseJSONString(R"({"message_type":"error","message":"what {is} this"})", &error));
  EXPECT_EQ(message.message, TKSValue("what {is} this"));
  EXPECT_FALSE(error.localizedDescription.empty());
  EXPECT_NE(error.localizedDescription, kNotJSON);
}

TEST(TKSMessage, BodyTextAroundAValidObjectIsKept) {
  for (const char* text : {R"(see {\"A\":1})", R"({\"A\":1} there)", R"({\"A\":1}{\"B\":2})"}) {
    TKSMessage message;
    TKSError error;
    const std::string json = std::string(R"({"message_type":"error","message":")") + text + "\"}";
    ASSERT_TRUE(message.parseJSONString(json, &error)) << json;
    EXPECT_TRUE(message.message.isText()) << json;
    EXPECT_NE(message.message.text().find("{\"A\":1}"), std::string_view::npos) << json;
    EXPECT_EQ(error.reason, TKSErrorReason::badMessage) << json;
  }
}

TEST(TKSMessage, BodyTextThatParsesToAnythingButAnObjectIsKept) {
  const TKSMessage message = parsed(R"({"message_type":"error","message":"[{\"A\":1}]"})");
  EXPECT_EQ(message.message, TKSValue("[{\"A\":1}]"));
}

TEST(TKSMessage, KeysOfABodyObjectAreLowerCasedOneLevelDeep) {
  const TKSMessage message = parsed(R"({"message_type":"a","message":{"A":{"B":1}}})");
  EXPECT_EQ(message.message, TKSValue(TKSDictionary{{"a", TKSDictionary{{"B", 1}}}}));
}

TEST(TKSMessage, EmptyBodyObjectIsADictionary) {
  EXPECT_EQ(parsed(R"({"message_type":"a","message":{}})").message, TKSValue(TKSDictionary()));
  EXPECT_EQ(parsed(R"({"message_type":"a","message":"{}"})").message, TKSValue(TKSDictionary()));
}

TEST(TKSMessage, TextAfterANULIsNotLost) {
  EXPECT_EQ(parsed(R"({"message_type":"a","message":"before\u0000after"})").message, TKSValue("before\0after"s));
}

TEST(TKSMessage, ByteOrderMarkIsSkipped) {
  EXPECT_EQ(parsed("\xEF\xBB\xBF{\"message_type\":\"a\",\"message\":\"b\"}").message, TKSValue("b"));
}

TEST(TKSMessage, WhatSucceedsLeavesTheErrorSlotAlone) {
  const TKSError before = {"some.domain", 7, "from before", TKSErrorReason::busy, "Wait."};
  TKSError error = before;
  TKSMessage message;
  ASSERT_TRUE(message.parseJSONString(R"({"message_type":"a","message":{"b":1}})", &error));
  ASSERT_TRUE(message.dumpJSONString(&error));
  ASSERT_FALSE(TKSMessage::JSONStringToObject("[]", &error).isNothing());
  ASSERT_TRUE(TKSMessage::objectToJSONString(TKSArray(), &error));
  EXPECT_EQ(error, before);
  EXPECT_EQ(error.reason, before.reason);
  EXPECT_EQ(error.recoverySuggestion, before.recoverySuggestion);
}

TEST(TKSMessage, ParsingWithoutAnErrorSlotAnswersTheSame) {
  TKSMessage message;
  EXPECT_FALSE(message.parseJSONString("no"));
  EXPECT_TRUE(message.parseJSONString(R"({"message_type":"a","message":"{no}"})"));
}

// Lower-casing.

TEST(TKSMessage, KeysAreLowerCasedByUnicodesRules) {
  const TKSValue lowered = TKSMessage::dictionaryWithAllKeysToLowerCase(
      TKSDictionary{{"\xC3\x84\xC3\x96", 1}, {"\xCE\xA3\xCE\x91", 2}, {"Plain", 3}});
  EXPECT_EQ(lowered, TKSValue(TKSDictionary{{"\xC3\xA4\xC3\xB6", 1}, {"\xCF\x83\xCE\xB1", 2}, {"plain", 3}}));
}

TEST(TKSMessage, EveryCapitalLetterOfAKeyIsLowered) {
  const std::pair<const char*, const char*> rows[] = {{"A", "a"},       {"Z", "z"},           {"aZ", "az"},
                                                      {"@[`{", "@[`{"}, {"\u00c4", "\u00e4"}, {"_9", "_9"}};
  for (const auto& [key, lowered] : rows) {
    EXPECT_EQ(TKSMessage::dictionaryWithAllKeysToLowerCase(TKSDictionary{{key, 1}}),
              TKSValue(TKSDictionary{{lowered, 1}}))
        << key;
  }
}

TEST(TKSMessage, OfKeysThatDifferOnlyInCaseTheLastInByteOrderWins) {
  EXPECT_EQ(TKSMessage::dictionaryWithAllKeysToLowerCase(TKSDictionary{{"KEY", 1}, {"Key", 2}, {"key", 3}}),
            TKSValue(TKSDictionary{{"key", 3}}));
  EXPECT_EQ(TKSMessage::dictionaryWithAllKeysToLowerCase(TKSDictionary{{"KEY", 1}, {"KEy", 2}}),
            TKSValue(TKSDictionary{{"key", 2}}));
}

TEST(TKSMessage, LowerCasingNothingGivesNothing) {
  EXPECT_TRUE(TKSMessage::dictionaryWithAllKeysToLowerCase({}).isNothing());
  EXPECT_TRUE(TKSMessage::dictionaryWithAllKeysToLowerCase("text").isNothing());
  EXPECT_EQ(TKSMessage::dictionaryWithAllKeysToLowerCase(TKSDictionary()), TKSValue(TKSDictionary()));
}

TEST(TKSMessage, LowerCasingLeavesTheGivenDictionaryAlone) {
  const TKSDictionary given{{"A", 1}};
  TKSMessage::dictionaryWithAllKeysToLowerCase(given);
  EXPECT_EQ(given, (TKSDictionary{{"A", 1}}));
}

// Writing.

TEST(TKSMessage, OnlyWhatIsPresentIsWritten) {
  TKSMessage message;
  EXPECT_THAT(message.dumpJSONString(), Optional("{}"s));
  message.messageType = "hello";
  EXPECT_THAT(message.dumpJSONString(), Optional(R"({"message_type":"hello"})"s));
  message.message = "hello";
  EXPECT_EQ(message.dumpDictionary(), (TKSDictionary{{"message_type", "hello"}, {"message", "hello"}}));
  EXPECT_THAT(message.dumpJSONString(), Optional(R"({"message":"hello","message_type":"hello"})"s));
}

TEST(TKSMessage, ZeroLengthTextsAreWritten) {
  TKSMessage message;
  message.messageType = message.token = message.domain = "";
  message.message = "";
  EXPECT_THAT(message.dumpJSONString(), Optional(R"({"domain":"","message":"","message_type":"","token":""})"s));
}

TEST(TKSMessage, JoinParametersNeverTravel) {
  TKSMessage message;
  message.joinParams.set("secret", "x");
  EXPECT_THAT(message.dumpJSONString(), Optional("{}"s));
}

TEST(TKSMessage, JoinParametersAreNeverReadOffTheWire) {
  TKSMessage message;
  message.joinParams.set("kept", "own");
  for (const char* name : {"joinParams", "join_params", "joinparams"}) {
    const std::string text = std::string(R"({"message_type":"a","message":"b",")") + name + R"(":{"kept":"foreign"}})";
    ASSERT_TRUE(message.parseJSONString(text)) << text;
    EXPECT_EQ(message.joinParams, (TKSDictionary{{"kept", "own"}})) << text;
  }
}

TEST(TKSMessage, SlashesAndTextBeyondASCIIAreWrittenAsTheyAre) {
  TKSMessage message;
  message.domain = "https://a.example/meet";
  message.message =
      "Gr\xC3\xBC\xC3\x9F"
      "e";
  EXPECT_THAT(message.dumpJSONString(),
              Optional("{\"domain\":\"https://a.example/meet\",\"message\":\"Gr\xC3\xBC\xC3\x9F"
                       "e\"}"s));
}

TEST(TKSMessage, WhatIsWrittenReadsBack) {
  TKSMessage message;
  message.messageType = "launch_meeting";
  message.token = "\"quoted\"\n\x01";
  message.domain = "https://a.example";
  message.message = TKSDictionary{{"text", "x"},
                                  {"number", 42},
                                  {"real", 0.1},
                                  {"yes", true},
                                  {"null", TKSNull()},
                                  {"list", TKSArray{1, "two"}},
                                  {"inner", TKSDictionary{{"K", 1}}}};
  const TKSMessage read = parsed(message.dumpJSONString().value());
  EXPECT_EQ(read.messageType, message.messageType);
  EXPECT_EQ(read.token, message.token);
  EXPECT_EQ(read.domain, message.domain);
  EXPECT_EQ(read.message, message.message);
}

TEST(TKSMessage, BodyThatJSONDoesNotHaveFailsWithAnError) {
  for (const TKSValue& body :
       {TKSValue(TKSDictionary{{"data", TKSData{1, 2}}}), TKSValue(TKSDate{1}), TKSValue(TKSArray{std::nan("")}),
        TKSValue(std::numeric_limits<double>::infinity()), TKSValue("not \xFF UTF-8")}) {
    TKSMessage message;
    message.messageType = "a";
    message.message = body;
    TKSError error;
    EXPECT_FALSE(message.dumpJSONString(&error));
    EXPECT_EQ(error.domain, commonErrorDomain);
    EXPECT_EQ(error.code, 0);
    EXPECT_FALSE(error.localizedDescription.empty());
    EXPECT_FALSE(message.dumpJSONString());
  }
}

// The wrappers.

TEST(TKSMessage, JSONStringToObjectReadsObjectsAndArrays) {
  TKSError error;
  EXPECT_EQ(TKSMessage::JSONStringToObject(R"({"A":[1]})", &error), TKSValue(TKSDictionary{{"A", TKSArray{1}}}));
  EXPECT_EQ(TKSMessage::JSONStringToObject("[1,2]", &error), TKSValue(TKSArray{1, 2}));
  EXPECT_EQ(error, TKSError());
}

TEST(TKSMessage, JSONStringToObjectAnswersTheReadersError) {
  for (const char* text : {"{", "7", "\"x\""}) {
    TKSError error;
    EXPECT_TRUE(TKSMessage::JSONStringToObject(text, &error).isNothing());
    EXPECT_FALSE(error.localizedDescription.empty());
  }
}

TEST(TKSMessage, JSONStringToObjectOfNothingIsAnErrorOfItsOwn) {
  TKSError error;
  EXPECT_TRUE(TKSMessage::JSONStringToObject("", &error).isNothing());
  EXPECT_EQ(error.domain, commonErrorDomain);
  EXPECT_EQ(error.code, 0);
  EXPECT_FALSE(error.localizedDescription.empty());
}

TEST(TKSMessage, ObjectToJSONStringIsCompact) {
  EXPECT_THAT(TKSMessage::objectToJSONString(TKSDictionary{{"b", TKSArray{1, TKSNull()}}, {"a", true}}),
              Optional(R"({"a":true,"b":[1,null]})"s));
  EXPECT_THAT(TKSMessage::objectToJSONString(TKSArray()), Optional("[]"s));
}

TEST(TKSMessage, ObjectToJSONStringRefusesWhatIsNoListOrHoldsWhatJSONDoesNotHave) {
  for (const TKSValue& value : {TKSValue(), TKSValue("x"), TKSValue(1), TKSValue(TKSArray{TKSDate{1}})}) {
    TKSError error;
    EXPECT_FALSE(TKSMessage::objectToJSONString(value, &error));
    EXPECT_EQ(error.domain, commonErrorDomain);
    EXPECT_EQ(error.code, 0);
  }
}

// Acknowledgements.

TEST(TKSMessage, LaunchAckWithoutParametersHoldsResultAndReasonOnly) {
  const TKSMessage ack = TKSMessage::generateLaunchAckMessage(nullptr);
  EXPECT_THAT(ack.messageType, Optional("launch_meeting_ack"s));
  EXPECT_EQ(ack.message, TKSValue(TKSDictionary{{"result", "0"}, {"reason", "Launch meeting done"}}));
  EXPECT_FALSE(ack.token);
  EXPECT_FALSE(ack.domain);
}

TEST(TKSMessage, LaunchAckAddsToTheVeryDictionaryThatIsGiven) {
  TKSDictionary param{{"token", "T"}, {"domain", "https://a.example"}, {"result", "old"}, {"more", 1}};
  const TKSMessage ack = TKSMessage::generateLaunchAckMessage(&param);
  const TKSDictionary expected{
      {"token", "T"}, {"domain", "https://a.example"}, {"result", "0"}, {"reason", "Launch meeting done"}, {"more", 1}};
  EXPECT_EQ(param, expected);
  EXPECT_EQ(ack.message, TKSValue(expected));
  EXPECT_THAT(ack.token, Optional("T"s));
  EXPECT_THAT(ack.domain, Optional("https://a.example"s));
}

TEST(TKSMessage, CrossLaunchAckHoldsTheTokenWhenThereIsOne) {
  const TKSMessage ack = TKSMessage::generateLaunchAckMessageForCrossLaunch("https://a.example", "T");
  EXPECT_THAT(ack.messageType, Optional("launch_meeting_ack"s));
  EXPECT_EQ(ack.message, TKSValue(TKSDictionary{{"result", "0"},
                                                {"reason", "Launch meeting done by cross launch"},
                                                {"tkstoken", "T"},
                                                {"isLoadClientCred", "false"}}));
  EXPECT_THAT(ack.token, Optional("T"s));
  EXPECT_THAT(ack.domain, Optional("https://a.example"s));
}

TEST(TKSMessage, CrossLaunchAckMayLackBoth) {
  const TKSMessage ack = TKSMessage::generateLaunchAckMessageForCrossLaunch(std::nullopt, std::nullopt);
  EXPECT_EQ(ack.message,
            TKSValue(TKSDictionary{
                {"result", "0"}, {"reason", "Launch meeting done by cross launch"}, {"isLoadClientCred", "false"}}));
  EXPECT_FALSE(ack.token);
  EXPECT_FALSE(ack.domain);
}

}  // namespace

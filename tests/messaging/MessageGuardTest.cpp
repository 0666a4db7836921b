#include <tksinterface/TKSMessage.h>

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <tuple>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageVocabulary.h>

#include "platform/platform.h"
#include "tests/support/FakeJson.h"

// What the message record keeps away from its callers, and the shapes in which messages travel.

namespace {

TEST(MessageGuard, ReaderThatThrowsIsAnErrorWithTheTextOfTheException) {
  const tks::test::ThrowingReader reader(std::runtime_error("the reader broke down"));
  TKSError error;
  EXPECT_TRUE(TKSMessage::JSONStringToObject("{}", &error).isNothing());
  EXPECT_EQ(error, (TKSError{std::string(commonErrorDomain), 0, "the reader broke down"}));
  EXPECT_TRUE(TKSMessage::JSONStringToObject("{}").isNothing());
}

TEST(MessageGuard, ReaderThatThrowsFailsAParseWithItsOwnText) {
  const tks::test::ThrowingReader reader(std::runtime_error("the reader broke down"));
  TKSMessage message;
  message.messageType = "kept";
  TKSError error;
  EXPECT_FALSE(message.parseJSONString(R"({"message_type":"a","message":"b"})", &error));
  EXPECT_EQ(error, (TKSError{std::string(commonErrorDomain), 0,
                             "Passing nil or not an valid JSON string when try to parse JSON for TKSMessge."}));
  EXPECT_EQ(message.messageType, "kept");
}

TEST(MessageGuard, BodyTextKeepsItsKeysWhenOnlyOneBraceIsThereOrTheyStandTheWrongWayRound) {
  const std::tuple<const char*, const char*> rows[] = {
      {R"({"message_type":"a","message":"{\"A\":1"})", R"({"A":1)"},
      {R"({"message_type":"a","message":"\"A\":1}"})", R"("A":1})"},
      {R"({"message_type":"a","message":"} and {"})", "} and {"},
  };
  for (const auto& [json, body] : rows) {
    TKSMessage message;
    EXPECT_TRUE(message.parseJSONString(json)) << json;
    EXPECT_EQ(message.message, TKSValue(body));
  }
}

TEST(MessageGuard, BodyIsStoredWhateverItsTypeSays) {
  for (const char* type : {"hello_ack", "no such type", "HELLO", " "}) {
    TKSMessage message;
    EXPECT_TRUE(message.parseJSONString(std::string(R"({"message":"x","message_type":")") + type + "\"}"));
    EXPECT_EQ(message.messageType, type);
  }
}

TEST(MessageGuard, FailuresAreFoundInTheOrderOfTheChecks) {
  const std::tuple<const char*, const char*> rows[] = {
      {"[7]", "Only accept dictionary message string, while passing type: array"},
      {R"({"message":7})", "Message type empty when TKSMessage parseJSONString:."},
      {R"({"message_type":"a","message":7})", "Message data only accept dictionary or string, while receiving: number"},
  };
  for (const auto& [json, text] : rows) {
    TKSMessage message;
    TKSError error;
    EXPECT_FALSE(message.parseJSONString(json, &error));
    EXPECT_EQ(error, (TKSError{std::string(commonErrorDomain), 0, text}));
    EXPECT_FALSE(message.messageType);
    EXPECT_TRUE(message.message.isNothing());
  }
}

TEST(MessageGuard, AcknowledgementTravelsWithTheLaunchParametersAndReadsBack) {
  TKSDictionary param{{"gpcsitedomain", "https://a.example"}, {"token", "T"}, {"domain", "https://a.example"}};
  const std::string text = TKSMessage::generateLaunchAckMessage(&param).dumpJSONString().value();
  EXPECT_EQ(text, R"({"domain":"https://a.example","message":{"domain":"https://a.example",)"
                  R"("gpcsitedomain":"https://a.example","reason":"Launch meeting done","result":"0","token":"T"},)"
                  R"("message_type":"launch_meeting_ack","token":"T"})");
  TKSMessage read;
  EXPECT_TRUE(read.parseJSONString(text));
  EXPECT_EQ(read.messageType, tks_message_type_launch_meeting_ack);
  EXPECT_EQ(read.message["result"], TKSValue(tks_message_value_result_success));
}

}  // namespace

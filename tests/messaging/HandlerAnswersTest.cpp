#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/messaging/Conversation.h"
#include "tests/messaging/HandlerTest.h"
#include "tests/support/ScopedOptions.h"

// What the conversation makes of the launcher's answers.

namespace {

using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::HandlerTest;
using tks::test::LogLine;

// Answers and their lines.

TEST_F(HandlerTest, LinesOfTheGreetingsAnswer) {
  talk_.hello();
  talk_.events();
  talk_.log.clear();
  talk_.saysType("hello_ack");
  EXPECT_THAT(lines(), ElementsAre(LogLine{2, "Handle message of type: hello_ack"}));
  EXPECT_FALSE(handler().helloFinishBlock || handler().helloErrorBlock);
}

TEST_F(HandlerTest, GreetingsAnswerWithoutCallbacksIsFine) {
  handler().startMessageHost();
  handler().notifyStatusBlock = nullptr;
  talk_.saysType("hello_ack");
  EXPECT_THAT(talk_.events(), IsEmpty());
}

TEST_F(HandlerTest, LinesOfTheLaunchsAnswer) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.log.clear();
  talk_.saysType("launch_meeting_ack");
  EXPECT_THAT(
      lines(),
      ElementsAre(
          LogLine{2, "Handle message of type: launch_meeting_ack"},
          LogLine{2, "Tarvo Kovra Start launch meeting done. Ready to disconnect."},
          LogLine{2, "Blocks 'launchFinishBlock' & 'launchErrorBlock' cleaned. Track things by disconnect blocks."}));
  EXPECT_FALSE(handler().launchFinishBlock || handler().launchErrorBlock || handler().disconnectFinishBlock);
  EXPECT_TRUE(handler().disconnectErrorBlock && handler().TKSUpdateDoneBlock);
}

TEST_F(HandlerTest, LaunchsAnswerDoesNotChangeTheStatus) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.saysType("launch_meeting_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("calls launch", "sends disconnect"));
  EXPECT_EQ(talk_.status, TKSI_APP_STATUS_LAUNCHING);
}

TEST_F(HandlerTest, LinesOfTheDisconnectsAnswer) {
  talk_.connect();
  talk_.disconnect();
  talk_.events();
  talk_.log.clear();
  talk_.saysType("disconnect_ack");
  EXPECT_THAT(lines(), ElementsAre(LogLine{2, "Handle message of type: disconnect_ack"},
                                   LogLine{2, "On disconnect_ack message. Close message host."},
                                   LogLine{2, "Handle disconnect_ack message."},
                                   LogLine{2, "-[TKSIMessageHandler stopMessageHost]"},
                                   LogLine{2, "Message Host running, stop it."},
                                   LogLine{2, "'disconnectErrorBlock' cleaned, when disconnect_ack"},
                                   LogLine{2, "Tarvo Kovra Start disconnected."}));
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", "calls disconnect"));
  EXPECT_FALSE(handler().disconnectFinishBlock || handler().disconnectErrorBlock || handler().queryStatusBlock);
  EXPECT_TRUE(handler().notifyStatusBlock);
}

TEST_F(HandlerTest, LinesOfASelfUpdate) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.log.clear();
  talk_.saysType("host_notify");
  talk_.saysType("disconnect_ack");
  const std::vector<LogLine> found = lines();
  EXPECT_EQ(found[0], (LogLine{2, "Handle message of type: host_notify"}));
  EXPECT_EQ(found[1], (LogLine{2, "Tarvo Kovra Start self update done. Ready to disconnect."}));
  EXPECT_THAT(found, Contains(LogLine{2, "Call update done block."}));
  EXPECT_THAT(talk_.events(), ElementsAre("sends disconnect", "notifies 1", "calls updateDone"));
  EXPECT_FALSE(handler().TKSUpdateDoneBlock);
}

TEST_F(HandlerTest, SelfUpdateThatNobodyWaitsForIsAWarning) {
  talk_.connect();
  talk_.saysType("host_notify");
  talk_.saysType("disconnect_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("sends disconnect", "notifies 1"));
  EXPECT_TRUE(talk_.log.has(4, "No TKS self update done callback block!"));
}

TEST_F(HandlerTest, LinesOfALaunchersError) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.log.clear();
  talk_.saysError(R"({"error_code":"2007","error_message":"jane.roe@a.example timed out"})");
  EXPECT_THAT(lines(), ElementsAre(LogLine{2, "Handle message of type: error"},
                                   LogLine{2, "On error message. About to disconnect."},
                                   LogLine{2, "Try clean up finish blocks after error."},
                                   LogLine{2, "Clean up launchFinishBlock after error"},
                                   LogLine{2,
                                           "Handle launch error message info: {\n    \"error_code\" = 2007;\n    "
                                           "\"error_message\" = \"jane.***@a.example timed out\";\n}"}));
  EXPECT_THAT(talk_.events(),
              ElementsAre("sends disconnect", "calls launchError TKSITKSDomain 2007 jane.roe@a.example timed out"));
}

TEST_F(HandlerTest, TextsOfALaunchersErrorAreMaskedWhereTheHostWantsThat) {
  const std::pair<const char*, std::string> rows[] = {
      {R"({"error_code":"2007","error_message":"jane.roe@a.example timed out"})", "TKSITKSDomain 2007 jane."},
      {R"("jane.roe@a.example timed out")", "TKSIDefaultDomain 0 jane."}};
  for (const bool masked : {false, true}) {
    const tks::test::ScopedOptions scope({.maskReceived = masked});
    for (const auto& [body, beginning] : rows) {
      talk_.connect();
      talk_.launch();
      talk_.events();
      talk_.saysError(body);
      const std::string user = masked ? "***" : "roe";
      EXPECT_THAT(talk_.events(), Contains("calls launchError " + beginning + user + "@a.example timed out"));
      talk_.saysType("disconnect_ack");
      talk_.events();
    }
  }
}

TEST_F(HandlerTest, ErrorsCodeAndTextHaveStandIns) {
  const std::tuple<const char*, const char*> rows[] = {
      {R"({})", "2005 Unknown error"},
      {R"({"error_message":"Failed"})", "2005 Failed"},
      {R"({"error_code":"2002"})", "2002 Unknown error"},
      {R"({"error_code":2003,"error_message":42})", "2003 42"},
      {R"({"error_code":" -7x","error_message":""})", "-7 "},
      {R"({"error_code":"none","error_message":null})", "0 <null>"},
      {R"({"error_code":"99999999999"})", "2147483647 Unknown error"},
      {R"({"error_code":null})", "0 Unknown error"},
      {R"({"error_code":2004.9})", "2004 Unknown error"},
  };
  talk_.connect();
  for (const auto& [body, expected] : rows) {
    talk_.launch();
    talk_.events();
    talk_.saysError(body);
    EXPECT_THAT(talk_.events(), ElementsAre("sends disconnect", "calls launchError TKSITKSDomain "s + expected))
        << body;
  }
}

TEST_F(HandlerTest, ErrorWithADictionaryAndNoLaunchCallbackCallsNobody) {
  handler().startMessageHost();
  talk_.hello();
  talk_.disconnect();
  talk_.events();
  talk_.saysError(R"({"error_code":"2001"})");
  EXPECT_THAT(talk_.events(), ElementsAre("sends disconnect"));
  EXPECT_TRUE(handler().helloErrorBlock && handler().disconnectErrorBlock);
  EXPECT_FALSE(handler().helloFinishBlock);
  EXPECT_TRUE(handler().disconnectFinishBlock);
}

TEST_F(HandlerTest, ErrorWithAnotherBodyIsPrinted) {
  talk_.connect();
  const std::tuple<TKSValue, const char*> rows[] = {
      {TKSValue(42), "42"}, {TKSValue(), "(null)"}, {TKSValue(TKSNull()), "<null>"}, {TKSValue(true), "1"}};
  for (const auto& [body, text] : rows) {
    talk_.launch();
    talk_.events();
    TKSMessage message;
    message.messageType = "error";
    message.message = body;
    handler().handleMessage(message, nullptr);
    EXPECT_THAT(talk_.events(), ElementsAre("sends disconnect", "calls launchError TKSIDefaultDomain 0 "s + text));
  }
}

TEST_F(HandlerTest, UnknownTypeIsOnlyLogged) {
  talk_.connect();
  TKSMessage message;
  handler().handleMessage(message, nullptr);
  message.messageType = "query_status";
  handler().handleMessage(message, nullptr);
  EXPECT_THAT(lines(), ElementsAre(LogLine{2, "Handle message of type: (null)"},
                                   LogLine{2, "Handle message of type: query_status"}));
  EXPECT_THAT(talk_.events(), IsEmpty());
}

}  // namespace

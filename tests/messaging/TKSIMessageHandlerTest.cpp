#include <tksinterface/TKSIMessageHandler.h>

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/messaging/Conversation.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace std::string_literals;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using tks::test::Conversation;
using tks::test::drainUntil;
using tks::test::LogLine;

constexpr const char* kEnd =
    "Message data size ( 0 ) less than 'sizeOfSize', no pending data. (Empty message probably means parent or child "
    "process already exited, while current message host is still open.)";

/// The lines of the handler itself, without those of the host below it.
std::vector<LogLine> linesOfHandler(const Conversation& talk) {
  static const std::string ofHost[] = {"On message.",
                                       "messageDataSize",
                                       "Valid message data size",
                                       "No pending data",
                                       "sizeOfSize",
                                       "tellingSize",
                                       "actualDataSize",
                                       "pendingDataSize",
                                       "receivedData size",
                                       "Receive message string",
                                       "Send message string",
                                       "Open message host with handler",
                                       "Close message host.",
                                       "Close message host done."};
  std::vector<LogLine> lines;
  for (const LogLine& line : talk.log.lines()) {
    bool hosts = line.level == 1;
    for (const std::string& text : ofHost) hosts = hosts || line.text.starts_with(text);
    if (!hosts) lines.push_back(line);
  }
  return lines;
}

class HandlerTest : public testing::Test {
 protected:
  TKSIMessageHandler& handler() { return *talk_.handler; }
  std::vector<LogLine> lines() {
    talk_.settle();
    return linesOfHandler(talk_);
  }

  Conversation talk_;
};

// Opening and closing.

TEST_F(HandlerTest, OwnsAHostOfTheInterfacesTypeAndHasNoCallbacks) {
  TKSIMessageHandler fresh;
  ASSERT_NE(fresh.messageHost, nullptr);
  EXPECT_EQ(fresh.messageHost->type, 0u);
  EXPECT_FALSE(fresh.messageHost->isOpened);
  EXPECT_FALSE(fresh.helloFinishBlock || fresh.launchFinishBlock || fresh.TKSUpdateDoneBlock ||
               fresh.disconnectFinishBlock);
  EXPECT_FALSE(fresh.helloErrorBlock || fresh.launchErrorBlock || fresh.disconnectErrorBlock);
  EXPECT_FALSE(fresh.notifyStatusBlock || fresh.queryStatusBlock);
}

TEST_F(HandlerTest, StartingAndStoppingTheHostAreLogged) {
  talk_.log.clear();
  handler().startMessageHost();
  handler().startMessageHost();
  handler().stopMessageHost();
  handler().stopMessageHost();
  EXPECT_THAT(
      talk_.log.lines(),
      ElementsAre(LogLine{2, "-[TKSIMessageHandler startMessageHost]"},
                  LogLine{2, "Message Host not started yet, start host."},
                  LogLine{2, "Open message host with handler."}, LogLine{2, "Open message host with handler done."},
                  LogLine{2, "-[TKSIMessageHandler startMessageHost]"},
                  LogLine{2, "Message Host has been started, and don't need start again."},
                  LogLine{2, "-[TKSIMessageHandler stopMessageHost]"}, LogLine{2, "Message Host running, stop it."},
                  LogLine{2, "Close message host."}, LogLine{2, "Close message host done."},
                  LogLine{2, "-[TKSIMessageHandler stopMessageHost]"}));
}

TEST_F(HandlerTest, HostTalksToTheHandler) {
  handler().startMessageHost();
  EXPECT_EQ(handler().messageHost->messageHandler, &handler());
}

TEST_F(HandlerTest, FolderIsPassedToTheHost) {
  handler().setIPCFileFolderPath("/a");
  EXPECT_EQ(handler().messageHost->tempIPCFileFullPathFromTKS2Interface, "/a/ipcFile_TKS2Interface");
}

TEST_F(HandlerTest, DestructionClosesTheHostAndCallsNobody) {
  talk_.hello();
  talk_.launch();
  talk_.disconnect();
  talk_.events();
  talk_.log.clear();
  talk_.handler.reset();
  EXPECT_THAT(talk_.events(), IsEmpty());
  EXPECT_TRUE(talk_.log.has(2, "Message Host running, stop it."));
}

// Requests.

TEST_F(HandlerTest, HelloOpensTheHostAndSendsItsName) {
  talk_.hello();
  EXPECT_TRUE(handler().messageHost->isOpened);
  EXPECT_THAT(talk_.texts, ElementsAre(R"({"message":"hello","message_type":"hello"})"));
}

TEST_F(HandlerTest, DisconnectDoesNotOpenTheHost) {
  talk_.disconnect();
  EXPECT_FALSE(handler().messageHost->isOpened);
  EXPECT_THAT(talk_.texts, IsEmpty());
  EXPECT_TRUE(talk_.log.has(4, "Message host already closed, abandon sending message."));
  EXPECT_TRUE(handler().disconnectFinishBlock && handler().disconnectErrorBlock);
}

TEST_F(HandlerTest, OnlyHelloAndDisconnectAreCommon) {
  handler().startMessageHost();
  EXPECT_TRUE(handler().sendCommonMessageOfType("hello"));
  EXPECT_TRUE(handler().sendCommonMessageOfType("disconnect"));
  talk_.log.clear();
  EXPECT_FALSE(handler().sendCommonMessageOfType("launch_meeting"));
  EXPECT_FALSE(handler().sendCommonMessageOfType(""));
  EXPECT_THAT(talk_.log.lines(), ElementsAre(LogLine{8, "Not able to handle message type: launch_meeting"},
                                             LogLine{8, "Not able to handle message type: "}));
  EXPECT_THAT(talk_.texts, ElementsAre(R"({"message":"hello","message_type":"hello"})",
                                       R"({"message":"disconnect","message_type":"disconnect"})"));
}

TEST_F(HandlerTest, LaterRequestReplacesTheCallbacksOfAnEarlierOne) {
  handler().sendHelloMessage(talk_.finish("first"), talk_.error("first"));
  handler().sendHelloMessage(talk_.finish("second"), talk_.error("second"));
  talk_.saysType("hello_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("sends hello", "sends hello", "notifies 3", "calls second"));
}

TEST_F(HandlerTest, LaunchCarriesTheParametersAndTheSitesAddress) {
  talk_.connect();
  talk_.texts.clear();
  talk_.launch(
      TKSDictionary{{"gpcsitedomain", "https://a.example"}, {"gpcurlroot", "https://b.example"}, {"Key", "v"}});
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4", "sends launch_meeting"));
  EXPECT_THAT(talk_.texts,
              ElementsAre(R"({"domain":"https://a.example","message":{"Key":"v","gpcsitedomain":"https://a.example",)"
                          R"("gpcurlroot":"https://b.example"},"message_type":"launch_meeting"})"));
}

TEST_F(HandlerTest, RootAddressStandsInForAMissingSiteDomain) {
  talk_.connect();
  talk_.texts.clear();
  talk_.launch(TKSDictionary{{"gpcurlroot", "https://b.example/root"}});
  EXPECT_EQ(TKSMessage::JSONStringToObject(talk_.texts.at(0))["domain"], TKSValue("https://b.example/root"));
}

TEST_F(HandlerTest, SiteDomainThatMakesNoURLGivesNoDomainEvenWithARootAddress) {
  talk_.connect();
  for (const TKSValue& domain : {TKSValue("not a url"), TKSValue(""), TKSValue(7), TKSValue(TKSNull())}) {
    talk_.texts.clear();
    talk_.launch(TKSDictionary{{"gpcsitedomain", domain}, {"gpcurlroot", "https://b.example"}});
    EXPECT_TRUE(TKSMessage::JSONStringToObject(talk_.texts.at(0))["domain"].isNothing());
  }
}

TEST_F(HandlerTest, BareHostNameMakesADomainAsItStands) {
  talk_.connect();
  talk_.texts.clear();
  talk_.launch(TKSDictionary{{"gpcsitedomain", "a.example"}});
  EXPECT_EQ(TKSMessage::JSONStringToObject(talk_.texts.at(0))["domain"], TKSValue("a.example"));
}

TEST_F(HandlerTest, EmptyDictionaryIsAParameterDictionary) {
  talk_.connect();
  talk_.texts.clear();
  talk_.launch(TKSDictionary());
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4", "sends launch_meeting"));
  EXPECT_THAT(talk_.texts, ElementsAre(R"({"message":{},"message_type":"launch_meeting"})"));
}

TEST_F(HandlerTest, MissingParametersAreReportedAtOnceAndAgainByALaterError) {
  talk_.connect();
  talk_.texts.clear();
  talk_.launch(TKSValue());
  EXPECT_THAT(talk_.log.texts(8), ElementsAre("Launch param nil!"));
  EXPECT_THAT(talk_.events(), ElementsAre("calls launchError TKSIDefaultDomain 0 Launch param nil!", "notifies 4",
                                          "sends launch_meeting"));
  EXPECT_THAT(talk_.texts, ElementsAre(R"({"message_type":"launch_meeting"})"));
  talk_.saysError("\"refused\"");
  EXPECT_THAT(talk_.events(), ElementsAre("sends disconnect", "calls launchError TKSIDefaultDomain 0 refused"));
}

TEST_F(HandlerTest, MissingParametersWithoutAnErrorCallbackAreLogged) {
  talk_.connect();
  handler().sendLaunchMessage({}, nullptr, nullptr, nullptr);
  EXPECT_THAT(talk_.log.texts(8), ElementsAre("Launch param nil!"));
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4", "sends launch_meeting"));
}

TEST_F(HandlerTest, LaunchWithoutAStatusCallbackIsSent) {
  talk_.connect();
  handler().notifyStatusBlock = nullptr;
  talk_.launch();
  EXPECT_THAT(talk_.events(), ElementsAre("sends launch_meeting"));
}

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

// Errors.

TEST_F(HandlerTest, ErrorCallbacksAreCalledInOrderAndFinishCallbacksDropped) {
  talk_.hello();
  talk_.launch();
  talk_.disconnect();
  talk_.events();
  talk_.log.clear();
  handler().handleError({"D", 3, "text"});
  EXPECT_THAT(talk_.events(),
              ElementsAre("calls helloError D 3 text", "calls launchError D 3 text", "calls disconnectError D 3 text"));
  EXPECT_THAT(
      talk_.log.lines(),
      ElementsAre(LogLine{2, "Try clean up finish blocks after error."},
                  LogLine{2, "Clean up helloFinishBlock after error"},
                  LogLine{2, "Clean up launchFinishBlock after error"}, LogLine{2, "Hello error callback block"},
                  LogLine{2, "Launch error callback block"}, LogLine{2, "Disconnect error callback block"}));
  EXPECT_TRUE(handler().disconnectFinishBlock && handler().TKSUpdateDoneBlock);
  EXPECT_FALSE(handler().helloErrorBlock || handler().launchErrorBlock || handler().disconnectErrorBlock);
  handler().handleError({"D", 3, "again"});
  EXPECT_THAT(talk_.events(), IsEmpty()) << "each is called at most once";
}

TEST_F(HandlerTest, ErrorStringBecomesTheDefaultError) {
  talk_.hello();
  talk_.events();
  handler().handleErrorString("text");
  EXPECT_THAT(talk_.events(), ElementsAre("calls helloError TKSIDefaultDomain 0 text"));
}

TEST_F(HandlerTest, ErrorWithNobodyToTellOnlyCleansUp) {
  talk_.log.clear();
  handler().handleError({"D", 3, "text"});
  EXPECT_THAT(talk_.log.lines(), ElementsAre(LogLine{2, "Try clean up finish blocks after error."}));
}

// Transport failures.

TEST_F(HandlerTest, FailureBeforeAConnectionGreetsAgainSixTimesAndThenReportsOnce) {
  talk_.hello();
  talk_.events();
  for (int i = 1; i <= 6; ++i) {
    talk_.log.clear();
    handler().handleMessageHostFatalError("broken");
    EXPECT_THAT(talk_.events(), ElementsAre("sends hello"));
    EXPECT_THAT(lines(),
                ElementsAre(LogLine{8, "Handle message host fatal error: broken"}, LogLine{2, "TKS connect status: 1"},
                            LogLine{4, "Got message host fatal error when TKS not even connected."},
                            LogLine{2, "Retry connect for " + std::to_string(i) + " time(s) after 100 milliseconds."}));
  }
  EXPECT_EQ(talk_.clock.slept, std::vector<std::chrono::microseconds>(6, 100ms));
  talk_.log.clear();
  handler().handleMessageHostFatalError("broken");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", "calls helloError TKSIDefaultDomain 0 broken"));
  EXPECT_THAT(
      lines(),
      ElementsAre(LogLine{8, "Handle message host fatal error: broken"}, LogLine{2, "TKS connect status: 1"},
                  LogLine{4, "Got message host fatal error when TKS not even connected."},
                  LogLine{8, "Already retried too many times to connect TKS message host."},
                  LogLine{2, "Close message host on fatal error."}, LogLine{2, "-[TKSIMessageHandler stopMessageHost]"},
                  LogLine{2, "Message Host running, stop it."}, LogLine{2, "Try clean up finish blocks after error."},
                  LogLine{2, "Clean up helloFinishBlock after error"}, LogLine{2, "Hello error callback block"}));
  EXPECT_FALSE(handler().messageHost->isOpened);
}

TEST(HandlerInAFreshProcess, CounterOfGreetingsBeginsAtNone) {
  TKS_IN_FRESH_PROCESS();
  const tks::test::LogRecorder log;
  TKSIMessageHandler handler;
  handler.queryStatusBlock = [] { return TKSI_APP_STATUS_UNCONNECTED; };
  handler.handleMessageHostFatalError("broken");
  EXPECT_TRUE(log.has(2, "Retry connect for 1 time(s) after 100 milliseconds."));
}

TEST_F(HandlerTest, CounterOfGreetingsBelongsToTheProcess) {
  talk_.hello();
  for (int i = 0; i < 6; ++i) handler().handleMessageHostFatalError("broken");
  talk_.events();
  TKSIMessageHandler other;
  other.queryStatusBlock = [] { return TKSI_APP_STATUS_UNCONNECTED; };
  other.handleMessageHostFatalError("broken");
  EXPECT_TRUE(talk_.log.has(8, "Already retried too many times to connect TKS message host."));
}

TEST_F(HandlerTest, NewConversationDoesNotResetTheCounter) {
  talk_.hello();
  for (int i = 0; i < 7; ++i) handler().handleMessageHostFatalError("broken");
  talk_.events();
  talk_.hello();
  handler().handleMessageHostFatalError("broken");
  EXPECT_THAT(talk_.events(), ElementsAre("sends hello", "notifies 1", "calls helloError TKSIDefaultDomain 0 broken"));
}

TEST_F(HandlerTest, AnswerResetsTheCounter) {
  talk_.hello();
  handler().handleMessageHostFatalError("broken");
  handler().handleMessageHostFatalError("broken");
  talk_.saysType("hello_ack");
  talk_.events();
  talk_.status = TKSI_APP_STATUS_UNCONNECTED;
  for (int i = 0; i < 6; ++i) handler().handleMessageHostFatalError("broken");
  EXPECT_THAT(talk_.events(), AllOf(SizeIs(6), Each("sends hello")));
}

TEST_F(HandlerTest, FailureWhenConnectedIsReportedAtOnceAndTheLineNamesTheConstant) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.log.clear();
  handler().handleMessageHostFatalError("broken");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", "calls launchError TKSIDefaultDomain 0 broken"));
  EXPECT_TRUE(talk_.log.has(2, "TKS connect status: 4"));
  EXPECT_TRUE(talk_.log.has(4, "TKS app status not TKSI_APP_STATUS_UNCONNECTED: 1, no need to retry connect."));
  EXPECT_FALSE(handler().messageHost->isOpened);
  EXPECT_THAT(talk_.clock.slept, IsEmpty());
}

TEST_F(HandlerTest, FailureWithoutAQueryCallbackIsReportedAtOnce) {
  talk_.hello();
  talk_.events();
  handler().queryStatusBlock = nullptr;
  talk_.log.clear();
  handler().handleMessageHostFatalError("broken");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", "calls helloError TKSIDefaultDomain 0 broken"));
  EXPECT_TRUE(talk_.log.has(2, "No query status block."));
}

TEST_F(HandlerTest, FailureWithoutAStatusCallbackLeavesTheHostOpenAndCallsNobody) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  handler().notifyStatusBlock = nullptr;
  talk_.log.clear();
  handler().handleMessageHostFatalError("broken");
  EXPECT_THAT(talk_.events(), IsEmpty());
  EXPECT_TRUE(handler().messageHost->isOpened);
  EXPECT_TRUE(handler().launchErrorBlock);
  EXPECT_THAT(lines(),
              ElementsAre(LogLine{8, "Handle message host fatal error: broken"}, LogLine{2, "TKS connect status: 4"},
                          LogLine{4, "TKS app status not TKSI_APP_STATUS_UNCONNECTED: 1, no need to retry connect."}));
}

TEST_F(HandlerTest, FatalErrorIsMaskedInTheLineAndPlainInTheError) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  handler().handleMessageHostFatalError("about jane.roe@a.example");
  EXPECT_TRUE(talk_.log.has(8, "Handle message host fatal error: about jane.***@a.example"));
  EXPECT_THAT(talk_.events(), Contains("calls launchError TKSIDefaultDomain 0 about jane.roe@a.example"));
}

TEST_F(HandlerTest, EndOfThePipeBeforeTheFarewellIsReported) {
  talk_.connect();
  talk_.disconnect();
  talk_.events();
  talk_.channels.input->end();
  ASSERT_TRUE(drainUntil([&] { return !handler().messageHost->isOpened; }));
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", "calls disconnectError TKSIDefaultDomain 0 "s + kEnd));
}

TEST_F(HandlerTest, EndOfThePipeAfterTheFarewellIsQuiet) {
  talk_.connect();
  talk_.disconnect();
  talk_.saysType("disconnect_ack");
  talk_.events();
  talk_.log.clear();
  talk_.channels.input->end();
  tks::test::drainFor(30ms);
  EXPECT_THAT(talk_.events(), IsEmpty());
  EXPECT_THAT(talk_.log.lines(), IsEmpty());
}

// Clean-ups.

TEST_F(HandlerTest, StatusCallbacksAreCleanedUpWithALineEach) {
  talk_.log.clear();
  handler().cleanupStatusBlocks();
  handler().cleanupStatusBlocks();
  EXPECT_THAT(talk_.log.lines(),
              ElementsAre(LogLine{2, "Try clean up status blocks."}, LogLine{2, "Clean up notifyStatusBlock."},
                          LogLine{2, "Clean up queryStatusBlock"}, LogLine{2, "Try clean up status blocks."}));
  EXPECT_FALSE(handler().notifyStatusBlock || handler().queryStatusBlock);
}

TEST_F(HandlerTest, FileConversationIsEndedAtOnceWithoutAnyCallbackOfIt) {
  talk_.hello();
  talk_.launch();
  talk_.disconnect();
  talk_.events();
  talk_.log.clear();
  handler().cleanupConnectStatus4FileIPC();
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1"));
  EXPECT_FALSE(handler().messageHost->isOpened);
  EXPECT_FALSE(handler().helloFinishBlock || handler().launchFinishBlock || handler().TKSUpdateDoneBlock ||
               handler().disconnectFinishBlock);
  EXPECT_FALSE(handler().helloErrorBlock || handler().launchErrorBlock || handler().disconnectErrorBlock);
  EXPECT_FALSE(handler().notifyStatusBlock || handler().queryStatusBlock);
  EXPECT_THAT(lines(),
              ElementsAre(LogLine{2, "-[TKSIMessageHandler stopMessageHost]"},
                          LogLine{2, "Message Host running, stop it."}, LogLine{2, "Try clean up status blocks."},
                          LogLine{2, "Clean up notifyStatusBlock."}, LogLine{2, "Clean up queryStatusBlock"}));
}

TEST_F(HandlerTest, CleanUpResetsTheCounter) {
  talk_.hello();
  for (int i = 0; i < 6; ++i) handler().handleMessageHostFatalError("broken");
  handler().cleanupConnectStatus4FileIPC();
  handler().queryStatusBlock = [] { return TKSI_APP_STATUS_UNCONNECTED; };
  handler().startMessageHost();
  talk_.events();
  handler().handleMessageHostFatalError("broken");
  EXPECT_THAT(talk_.events(), ElementsAre("sends hello"));
}

// Callbacks that go on with the conversation.

TEST_F(HandlerTest, FinishCallbackOfALaunchThatStopsSendsTheOnlyDisconnect) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.whenCalled["launch"] = [&] { talk_.disconnect(); };
  talk_.saysType("launch_meeting_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("calls launch", "sends disconnect"));
  talk_.saysType("disconnect_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", "calls disconnect"));
}

TEST_F(HandlerTest, FinishCallbackOfALaunchThatLaunchesAgainKeepsItsCallbacks) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.whenCalled["launch"] = [&] { talk_.launch(); };
  talk_.saysType("launch_meeting_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("calls launch", "notifies 4", "sends launch_meeting"));
  EXPECT_TRUE(handler().launchFinishBlock && handler().launchErrorBlock);
  talk_.saysType("launch_meeting_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("calls launch", "sends disconnect"));
}

TEST_F(HandlerTest, FinishCallbackOfALaunchThatCleansUpSendsNothing) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.whenCalled["launch"] = [&] { handler().cleanupConnectStatus4FileIPC(); };
  talk_.saysType("launch_meeting_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("calls launch", "notifies 1"));
  EXPECT_FALSE(handler().disconnectErrorBlock);
}

TEST_F(HandlerTest, QueryCallbackOfTheNextConversationSurvivesTheFarewell) {
  talk_.connect();
  talk_.disconnect();
  talk_.events();
  talk_.whenCalled["disconnect"] = [&] {
    handler().queryStatusBlock = [] { return TKSI_APP_STATUS_STARTING; };
    talk_.hello();
  };
  talk_.saysType("disconnect_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", "calls disconnect", "sends hello"));
  ASSERT_TRUE(handler().queryStatusBlock);
  EXPECT_EQ(handler().queryStatusBlock(), TKSI_APP_STATUS_STARTING);
  EXPECT_TRUE(handler().helloFinishBlock);
  EXPECT_TRUE(handler().messageHost->isOpened);
}

TEST_F(HandlerTest, ErrorCallbacksThatAnErrorCallbackInstallsAreForTheNextError) {
  talk_.hello();
  talk_.launch();
  talk_.events();
  talk_.whenCalled["helloError"] = [&] {
    talk_.hello();
    talk_.launch();
    talk_.disconnect();
  };
  handler().handleError({"D", 1, "first"});
  EXPECT_THAT(talk_.events(), ElementsAre("calls helloError D 1 first", "sends hello", "notifies 4",
                                          "sends launch_meeting", "sends disconnect", "calls launchError D 1 first"));
  handler().handleError({"D", 2, "second"});
  EXPECT_THAT(talk_.events(), ElementsAre("calls helloError D 2 second", "calls launchError D 2 second",
                                          "calls disconnectError D 2 second"));
}

TEST_F(HandlerTest, ErrorCallbackThatCleansUpIsTheLastOneCalled) {
  talk_.hello();
  talk_.launch();
  talk_.disconnect();
  talk_.events();
  talk_.whenCalled["helloError"] = [&] { handler().cleanupConnectStatus4FileIPC(); };
  handler().handleError({"D", 1, "text"});
  EXPECT_THAT(talk_.events(), ElementsAre("calls helloError D 1 text", "notifies 1"));
}

TEST_F(HandlerTest, StatusCallbackThatCleansUpStopsTheStep) {
  talk_.hello();
  talk_.events();
  talk_.whenNotified = [&](TKSIAppStatus status) {
    if (status == TKSI_APP_STATUS_CONNECTED) handler().cleanupConnectStatus4FileIPC();
  };
  talk_.saysType("hello_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 3", "notifies 1"));
}

TEST_F(HandlerTest, MissingParametersErrorCallbackMayMakeAnotherRequest) {
  talk_.connect();
  talk_.whenCalled["launchError"] = [&] { talk_.disconnect(); };
  talk_.launch(TKSValue());
  EXPECT_THAT(talk_.events(),
              ElementsAre("calls launchError TKSIDefaultDomain 0 Launch param nil!", "sends disconnect"));
  EXPECT_FALSE(handler().launchFinishBlock);
}

/// What a host may do from inside a callback.
struct Operation {
  const char* name;
  std::function<void(Conversation&)> run;
};

const Operation kOperations[] = {
    {"hello", [](Conversation& talk) { talk.hello(); }},
    {"launch", [](Conversation& talk) { talk.launch(); }},
    {"launch without parameters", [](Conversation& talk) { talk.launch(TKSValue()); }},
    {"disconnect", [](Conversation& talk) { talk.disconnect(); }},
    {"clean up", [](Conversation& talk) { talk.handler->cleanupConnectStatus4FileIPC(); }},
    {"clean up the status callbacks", [](Conversation& talk) { talk.handler->cleanupStatusBlocks(); }},
    {"stop the message host", [](Conversation& talk) { talk.handler->stopMessageHost(); }},
    {"report an error",
     [](Conversation& talk) {
       talk.handler->handleError({"D", 9, "from inside"});
     }},
    {"end of the conversation", [](Conversation& talk) { talk.handler->handleDisconnectAckMessage(); }},
    {"destroy the handler", [](Conversation& talk) { talk.handler.reset(); }},
    {"throw", [](Conversation&) { throw std::runtime_error("from the callback"); }},
};

/// How each of the nine callbacks comes to be called.
struct Trigger {
  const char* callback;
  std::function<void(Conversation&)> run;
};

const Trigger kTriggers[] = {
    {"hello", [](Conversation& talk) { talk.saysType("hello_ack"); }},
    {"helloError", [](Conversation& talk) { talk.saysError("\"text\""); }},
    {"launch", [](Conversation& talk) { talk.saysType("launch_meeting_ack"); }},
    {"launchError", [](Conversation& talk) { talk.saysError("{}"); }},
    {"updateDone",
     [](Conversation& talk) {
       talk.saysType("host_notify");
       talk.saysType("disconnect_ack");
     }},
    {"disconnect", [](Conversation& talk) { talk.saysType("disconnect_ack"); }},
    {"disconnectError", [](Conversation& talk) { talk.saysError("\"text\""); }},
    {"notify", [](Conversation& talk) { talk.saysType("hello_ack"); }},
    {"query", [](Conversation& talk) { talk.handler->handleMessageHostFatalError("broken"); }},
};

TEST(HandlerReentrancy, EveryOperationInsideEveryCallbackLeavesAHandlerThatStillWorks) {
  for (const Trigger& trigger : kTriggers) {
    for (const Operation& operation : kOperations) {
      SCOPED_TRACE(trigger.callback + " x "s + operation.name);
      Conversation talk;
      talk.hello();
      talk.launch();
      talk.disconnect();
      talk.events();
      bool done = false;
      const auto once = [&] {
        if (!std::exchange(done, true)) operation.run(talk);
      };
      talk.whenCalled[trigger.callback] = once;
      if (trigger.callback == "notify"s) talk.whenNotified = [&](TKSIAppStatus) { once(); };
      if (trigger.callback == "query"s) {
        talk.handler->queryStatusBlock = [&] {
          once();
          return TKSI_APP_STATUS_LAUNCHING;
        };
      }
      trigger.run(talk);
      talk.settle();
      EXPECT_TRUE(done);
      talk.whenNotified = nullptr;
      if (operation.name == "throw"s) {
        EXPECT_THAT(talk.log.texts(8), Contains(testing::HasSubstr("threw an exception: from the callback")));
      }

      // Whatever was done, the next conversation goes well, and each callback is called once.
      if (!talk.handler) talk.handler = std::make_unique<TKSIMessageHandler>();
      talk.whenCalled.clear();
      talk.handler->stopMessageHost();
      talk.handler->notifyStatusBlock = [&](TKSIAppStatus status) { talk.status = status; };
      talk.events();
      talk.hello();
      talk.saysType("hello_ack");
      EXPECT_THAT(talk.events(), ElementsAre("sends hello", "calls hello"));
      EXPECT_EQ(talk.status, TKSI_APP_STATUS_CONNECTED);
    }
  }
}

TEST(HandlerExceptions, EachCallbackMayThrowAndTheStepGoesOn) {
  Conversation talk;
  talk.handler->notifyStatusBlock = [&](TKSIAppStatus status) {
    talk.status = status;
    throw std::runtime_error("notify");
  };
  talk.handler->queryStatusBlock = []() -> TKSIAppStatus { throw std::runtime_error("query"); };
  const auto throwing = [&](const char* name) { talk.whenCalled[name] = [name] { throw std::runtime_error(name); }; };
  for (const char* name : {"hello", "launch", "disconnect", "updateDone", "helloError", "launchError"}) throwing(name);

  talk.hello();
  talk.saysType("hello_ack");
  EXPECT_THAT(talk.events(), ElementsAre("sends hello", "calls hello"));
  talk.launch();
  talk.saysType("launch_meeting_ack");
  EXPECT_THAT(talk.events(), ElementsAre("sends launch_meeting", "calls launch", "sends disconnect"));
  talk.handler->handleMessageHostFatalError("broken");
  EXPECT_THAT(talk.events(), ElementsAre("sends hello")) << "an unknown status counts as unconnected";
  talk.hello();
  talk.launch();
  talk.events();
  talk.handler->handleError({"D", 1, "text"});
  EXPECT_THAT(talk.events(),
              ElementsAre("calls helloError D 1 text", "calls launchError D 1 text", "calls launchError D 1 text"))
      << "the first launch handed its callback over to the disconnect";
  talk.saysType("host_notify");
  talk.saysType("disconnect_ack");
  EXPECT_THAT(talk.events(), ElementsAre("sends disconnect", "calls updateDone"));
  EXPECT_FALSE(talk.handler->messageHost->isOpened);

  const auto lines = talk.log.texts(8);
  for (const char* line : {"Callback 'notifyStatusBlock' threw an exception: notify",
                           "Callback 'queryStatusBlock' threw an exception: query",
                           "Callback 'helloFinishBlock' threw an exception: hello",
                           "Callback 'launchFinishBlock' threw an exception: launch",
                           "Callback 'helloErrorBlock' threw an exception: helloError",
                           "Callback 'launchErrorBlock' threw an exception: launchError",
                           "Callback 'TKSUpdateDoneBlock' threw an exception: updateDone"}) {
    EXPECT_THAT(lines, Contains(line));
  }
}

}  // namespace

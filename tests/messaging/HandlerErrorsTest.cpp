#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/messaging/Conversation.h"
#include "tests/messaging/HandlerTest.h"
#include "tests/support/FreshProcess.h"

// Errors, failures of the transport, and clean-ups.

namespace {

using namespace std::string_literals;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using tks::test::drainUntil;
using tks::test::HandlerTest;
using tks::test::kEnd;
using tks::test::LogLine;

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

TEST_F(HandlerTest, CleaningUpDropsTheFinishCallbacksUncalledAndKeepsTheOthers) {
  talk_.hello();
  talk_.launch();
  talk_.events();
  handler().cleanupFinishBlocksAfterError();
  EXPECT_FALSE(handler().helloFinishBlock || handler().launchFinishBlock);
  EXPECT_TRUE(handler().helloErrorBlock && handler().launchErrorBlock);
  EXPECT_THAT(talk_.events(), IsEmpty());
}

TEST_F(HandlerTest, InformationAboutALaunchIsTheLaunchersError) {
  talk_.hello();
  talk_.launch();
  talk_.events();
  handler().handleLaunchErrorMessageInfo({{"error_code", "2007"}, {"error_message", "timed out"}});
  EXPECT_THAT(talk_.events(), ElementsAre("calls launchError TKSITKSDomain 2007 timed out"));
  EXPECT_TRUE(handler().helloErrorBlock);
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
  EXPECT_EQ(talk_.clock.sleeps(), std::vector<std::chrono::microseconds>(6, 100ms));
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
  EXPECT_THAT(talk_.clock.sleeps(), IsEmpty());
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

}  // namespace

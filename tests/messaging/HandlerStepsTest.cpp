#include <tksinterface/TKSIMessageHandler.h>

#include <gmock/gmock.h>

#include <utility>

#include "tests/messaging/Conversation.h"

// What a host does inside of one step of the conversation, seen by the rest of that step.

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::Conversation;

class HandlerSteps : public testing::Test {
 protected:
  TKSIMessageHandler& handler() { return *talk_.handler; }
  Conversation talk_;
};

TEST_F(HandlerSteps, FinishCallbackOfALaunchThatGreetsSendsNoGoodbyeBehindIt) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.whenCalled["launch"] = [&] { talk_.hello(); };
  talk_.saysType("launch_meeting_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("calls launch", "sends hello"));
  EXPECT_TRUE(handler().launchErrorBlock) << "left in its place";
  EXPECT_FALSE(handler().disconnectErrorBlock);
}

TEST_F(HandlerSteps, StatusCallbackOfALaunchThatDestroysTheHandlerSendsNothing) {
  talk_.connect();
  talk_.whenNotified = [&](TKSIAppStatus status) {
    if (status == TKSI_APP_STATUS_LAUNCHING) talk_.handler.reset();
  };
  talk_.launch();
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4"));
  EXPECT_FALSE(talk_.handler);
}

TEST_F(HandlerSteps, ErrorCallbackForMissingParametersMayDestroyTheHandler) {
  talk_.connect();
  talk_.whenCalled["launchError"] = [&] { talk_.handler.reset(); };
  talk_.launch(TKSValue());
  EXPECT_THAT(talk_.events(), ElementsAre("calls launchError TKSIDefaultDomain 0 Launch param nil!"));
}

TEST_F(HandlerSteps, StatusCallbackOfAFailureThatDestroysTheHandlerEndsTheStep) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.whenNotified = [&](TKSIAppStatus) { talk_.handler.reset(); };
  handler().handleMessageHostFatalError("broken");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1"));
  EXPECT_FALSE(talk_.log.has(2, "Close message host on fatal error."));
}

TEST_F(HandlerSteps, ConversationBegunInsideTheStatusCallbackOfAFailureSurvivesIt) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  bool once = true;
  talk_.whenNotified = [&](TKSIAppStatus status) {
    if (status == TKSI_APP_STATUS_UNCONNECTED && std::exchange(once, false)) {
      handler().sendHelloMessage(talk_.finish("next"), talk_.error("next"));
    }
  };
  handler().handleMessageHostFatalError("broken");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", "sends hello", "calls launchError TKSIDefaultDomain 0 broken"));
  EXPECT_TRUE(handler().messageHost->isOpened);
  EXPECT_FALSE(handler().launchErrorBlock || handler().launchFinishBlock) << "told, once";
  talk_.saysType("hello_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 3", "calls next"));
}

TEST_F(HandlerSteps, MessageHostOpenedInsideTheStatusCallbackOfAFailureStaysOpen) {
  talk_.connect();
  bool once = true;
  talk_.whenNotified = [&](TKSIAppStatus) {
    if (!std::exchange(once, false)) return;
    handler().stopMessageHost();
    handler().startMessageHost();
  };
  handler().handleMessageHostFatalError("broken");
  EXPECT_TRUE(handler().messageHost->isOpened);
}

TEST_F(HandlerSteps, ConversationBegunInsideTheStatusCallbackOfACleanUpSurvivesIt) {
  talk_.connect();
  talk_.log.clear();
  handler().notifyStatusBlock = [&](TKSIAppStatus) {
    talk_.note("notifies the first");
    handler().notifyStatusBlock = [&](TKSIAppStatus status) { talk_.note("next notifies " + std::to_string(status)); };
    handler().queryStatusBlock = [] { return TKSI_APP_STATUS_STARTING; };
    handler().sendHelloMessage(talk_.finish("next"), talk_.error("next"));
  };
  handler().cleanupConnectStatus4FileIPC();
  EXPECT_THAT(talk_.events(), ElementsAre("notifies the first", "sends hello"));
  EXPECT_TRUE(handler().messageHost->isOpened);
  EXPECT_TRUE(handler().notifyStatusBlock && handler().queryStatusBlock);
  talk_.saysType("hello_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("next notifies 3", "calls next"));
}

TEST_F(HandlerSteps, StatusCallbackOfACleanUpMayDestroyTheHandler) {
  talk_.connect();
  talk_.log.clear();
  talk_.whenNotified = [&](TKSIAppStatus) { talk_.handler.reset(); };
  handler().cleanupConnectStatus4FileIPC();
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1"));
  EXPECT_FALSE(talk_.log.has(2, "Try clean up status blocks."));
}

TEST_F(HandlerSteps, StatusCallbackOfAFarewellThatCleansUpLeavesNothingToCall) {
  talk_.connect();
  talk_.disconnect();
  talk_.events();
  bool once = true;
  talk_.whenNotified = [&](TKSIAppStatus) {
    if (std::exchange(once, false)) handler().cleanupConnectStatus4FileIPC();
  };
  talk_.saysType("disconnect_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", "notifies 1"));
}

TEST_F(HandlerSteps, FailureInEveryStatusButTheFirstGreetsNobodyAgain) {
  for (const TKSIAppStatus status : {TKSI_APP_STATUS_STARTING, TKSI_APP_STATUS_CONNECTED, TKSI_APP_STATUS_LAUNCHING}) {
    Conversation talk;
    talk.hello();
    talk.events();
    talk.status = status;
    talk.handler->handleMessageHostFatalError("broken");
    EXPECT_THAT(talk.events(), ElementsAre("notifies 1", "calls helloError TKSIDefaultDomain 0 broken"));
    EXPECT_THAT(talk.clock.slept, IsEmpty());
    EXPECT_TRUE(talk.log.has(4, "TKS app status not TKSI_APP_STATUS_UNCONNECTED: 1, no need to retry connect."));
  }
}

TEST_F(HandlerSteps, FinishCallbacksAreGoneAfterAnErrorAndLateAnswersCallNobody) {
  talk_.hello();
  talk_.launch();
  talk_.events();
  handler().handleError({"D", 1, "text"});
  EXPECT_FALSE(handler().helloFinishBlock || handler().launchFinishBlock);
  talk_.events();
  talk_.saysType("hello_ack");
  talk_.saysType("launch_meeting_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 3", "sends disconnect"));
}

}  // namespace

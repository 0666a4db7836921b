#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "tests/messaging/Conversation.h"
#include "tests/messaging/HandlerTest.h"

// What a host does inside of one step of the conversation, seen by the rest of that step.

namespace {

using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::Conversation;
using tks::test::HandlerTest;

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

TEST_F(HandlerTest, FinishCallbackOfALaunchThatGreetsSendsNoGoodbyeAfterIt) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.whenCalled["launch"] = [&] { talk_.hello(); };
  talk_.saysType("launch_meeting_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("calls launch", "sends hello"));
  EXPECT_TRUE(handler().launchErrorBlock) << "left in its place";
  EXPECT_FALSE(handler().disconnectErrorBlock);
}

TEST_F(HandlerTest, StatusCallbackOfALaunchThatDestroysTheHandlerSendsNothing) {
  talk_.connect();
  talk_.whenNotified = [&](TKSIAppStatus status) {
    if (status == TKSI_APP_STATUS_LAUNCHING) talk_.handler.reset();
  };
  talk_.launch();
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4"));
  EXPECT_FALSE(talk_.handler);
}

TEST_F(HandlerTest, ErrorCallbackForMissingParametersMayDestroyTheHandler) {
  talk_.connect();
  talk_.whenCalled["launchError"] = [&] { talk_.handler.reset(); };
  talk_.launch(TKSValue());
  EXPECT_THAT(talk_.events(), ElementsAre("calls launchError TKSIDefaultDomain 0 Launch param nil!"));
}

TEST_F(HandlerTest, StatusCallbackOfAFailureThatDestroysTheHandlerEndsTheStep) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  talk_.whenNotified = [&](TKSIAppStatus) { talk_.handler.reset(); };
  handler().handleMessageHostFatalError("broken");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1"));
  EXPECT_FALSE(talk_.log.has(2, "Close message host on fatal error."));
}

TEST_F(HandlerTest, ConversationBegunInsideTheStatusCallbackOfAFailureSurvivesIt) {
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

TEST_F(HandlerTest, MessageHostOpenedInsideTheStatusCallbackOfAFailureStaysOpen) {
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

TEST_F(HandlerTest, ConversationBegunInsideTheStatusCallbackOfACleanUpSurvivesIt) {
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

TEST_F(HandlerTest, StatusCallbackOfACleanUpMayDestroyTheHandler) {
  talk_.connect();
  talk_.log.clear();
  talk_.whenNotified = [&](TKSIAppStatus) { talk_.handler.reset(); };
  handler().cleanupConnectStatus4FileIPC();
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1"));
  EXPECT_FALSE(talk_.log.has(2, "Try clean up status blocks."));
}

TEST_F(HandlerTest, StatusCallbackOfAFarewellThatCleansUpLeavesNothingToCall) {
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

TEST_F(HandlerTest, FailureInEveryStatusButTheFirstGreetsNobodyAgain) {
  for (const TKSIAppStatus status : {TKSI_APP_STATUS_STARTING, TKSI_APP_STATUS_CONNECTED, TKSI_APP_STATUS_LAUNCHING}) {
    Conversation talk;
    talk.hello();
    talk.events();
    talk.status = status;
    talk.handler->handleMessageHostFatalError("broken");
    EXPECT_THAT(talk.events(), ElementsAre("notifies 1", "calls helloError TKSIDefaultDomain 0 broken"));
    EXPECT_THAT(talk.clock.sleeps(), IsEmpty());
    EXPECT_TRUE(talk.log.has(4, "TKS app status not TKSI_APP_STATUS_UNCONNECTED: 1, no need to retry connect."));
  }
}

TEST_F(HandlerTest, FinishCallbacksAreGoneAfterAnErrorAndLateAnswersCallNobody) {
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

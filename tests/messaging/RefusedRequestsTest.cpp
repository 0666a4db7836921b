#include <gmock/gmock.h>

#include <string>

#include <tksinterface/TKSIMessageHandler.h>

#include "tests/messaging/Conversation.h"
#include "tests/support/ScopedValue.h"

// Requests that can never reach the launcher.

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using tks::test::Conversation;
using tks::test::ScopedValue;

class RefusedRequests : public testing::Test {
 protected:
  /// What still waits keeps its queue until somebody reads.
  ~RefusedRequests() override {
    talk_.handler.reset();
    while (talk_.channels.output->writerWaits()) {
      talk_.channels.output->take();
      tks::test::drainFor(std::chrono::milliseconds(2));
    }
  }
  TKSIMessageHandler& handler() { return *talk_.handler; }
  Conversation talk_;
};

TEST_F(RefusedRequests, LaunchThatIsNoJsonReachesItsErrorCallbackAndTheLauncherIsToldGoodbye) {
  talk_.connect();
  talk_.launch(TKSDictionary{{"when", TKSDate{1}}});
  EXPECT_THAT(
      talk_.events(),
      ElementsAre("notifies 4", "sends disconnect", "notifies 1",
                  "calls launchError TKSIDefaultDomain 0 Send message failed: Invalid type in JSON write (date)"));
  EXPECT_FALSE(handler().messageHost->isOpened);
  EXPECT_FALSE(handler().launchFinishBlock || handler().launchErrorBlock);
}

TEST_F(RefusedRequests, LaunchFarBeyondTheLargestMessageIsSentWhenNothingWaits) {
  talk_.connect();
  const ScopedValue limit(tks_max_msg_size, std::int64_t{100});
  talk_.channels.output->room = 10'000;
  talk_.launch(TKSDictionary{{"key", std::string(5'000, 'x')}});
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4", "sends launch_meeting"));
}

TEST_F(RefusedRequests, LaunchThatFindsNoRoomReachesItsErrorCallback) {
  talk_.connect();
  const ScopedValue limit(tks_max_msg_size, std::int64_t{100});
  talk_.channels.output->room = 0;
  handler().sendCommonMessageOfType("hello");
  talk_.launch(TKSDictionary{{"key", std::string(5'000, 'x')}});
  const auto events = talk_.events();
  ASSERT_EQ(events.size(), 3u);
  EXPECT_THAT(
      events[2],
      StartsWith("calls launchError TKSIDefaultDomain 0 Send message failed: 46 bytes wait already, no room for"));
  EXPECT_EQ(events[1], "notifies 1");
}

TEST_F(RefusedRequests, LaunchOverAClosedHostReachesItsErrorCallback) {
  talk_.launch();
  EXPECT_THAT(talk_.events(),
              ElementsAre("notifies 4", "notifies 1",
                          "calls launchError TKSIDefaultDomain 0 Send message failed: The message host is closed."));
  EXPECT_TRUE(talk_.log.has(4, "Message host already closed, abandon sending message."));
}

TEST_F(RefusedRequests, GoodbyeThatFindsNoRoomReachesItsErrorCallback) {
  talk_.connect();
  const ScopedValue limit(tks_max_msg_size, std::int64_t{10});
  talk_.channels.output->room = 0;
  handler().sendCommonMessageOfType("hello");
  talk_.disconnect();
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", StartsWith("calls disconnectError TKSIDefaultDomain 0 Send ")));
  EXPECT_FALSE(handler().messageHost->isOpened);
}

TEST_F(RefusedRequests, FailureOfThePipeIsLeftToTheReader) {
  talk_.connect();
  talk_.channels.output->readerIsGone = true;
  talk_.launch();
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4"));
  EXPECT_THAT(talk_.log.texts(8), ElementsAre(StartsWith("Write message failed: ")));
  EXPECT_TRUE(handler().launchErrorBlock) << "the reader will tell";
}

TEST_F(RefusedRequests, GreetingOverFilesWithoutAFolderReachesItsErrorCallback) {
  talk_.process.bundleIdentifier = "Tarvo-Systems.Ember";
  talk_.handler = std::make_unique<TKSIMessageHandler>();
  talk_.handler->notifyStatusBlock = [&](TKSIAppStatus now) { talk_.note("notifies " + std::to_string(now)); };
  talk_.hello();
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", StartsWith("calls helloError TKSIDefaultDomain 0 Send ")));
  EXPECT_FALSE(handler().messageHost->isOpened);
}

TEST_F(RefusedRequests, ErrorCallbackMayDestroyTheHandlerOrLaunchAgain) {
  talk_.connect();
  talk_.whenCalled["launchError"] = [&] { talk_.hello(); };
  talk_.launch(TKSDictionary{{"when", TKSDate{1}}});
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4", "sends disconnect", "notifies 1",
                                          StartsWith("calls launchError"), "sends hello"));
  talk_.whenCalled["launchError"] = [&] { talk_.handler.reset(); };
  talk_.launch(TKSDictionary{{"when", TKSDate{1}}});
  EXPECT_FALSE(talk_.handler);
}

}  // namespace

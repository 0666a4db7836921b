#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/messaging/HandlerTest.h"
#include "tests/support/PlayedTimers.h"
#include "tests/support/ScopedOptions.h"

// Limits of time for the launcher's answers. Time passes when a test says so.

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using tks::test::LogLine;
using tks::test::PlayedTimers;
using tks::test::ScopedOptions;

class AnswerLimits : public tks::test::HandlerTest {
 protected:
  PlayedTimers time_;
  ScopedOptions options_;

  /// A greeting that was heard.
  void greet() {
    talk_.hello();
    EXPECT_THAT(talk_.events(), ElementsAre("sends hello"));
  }
  /// A launcher that is silent for a day is still waited for.
  void expectPatience() {
    time_.pass(24h);
    EXPECT_THAT(talk_.events(), IsEmpty());
    EXPECT_TRUE(handler().messageHost->isOpened);
  }
};

std::string silent(const std::string& callback, const std::string& type, int limit) {
  return "calls " + callback + " TKSIDefaultDomain 0 TKS did not answer \"" + type + "\" within " +
         std::to_string(limit) + " ms.";
}

TEST_F(AnswerLimits, WithoutThemASilentLauncherIsWaitedForForEver) {
  greet();
  expectPatience();
  EXPECT_THAT(talk_.log.texts(4), IsEmpty());
}

TEST_F(AnswerLimits, WithoutThemALaunchIsWaitedForForEver) {
  talk_.connect();
  talk_.launch();
  talk_.events();
  expectPatience();
}

TEST_F(AnswerLimits, WithoutThemTheAnswerToAGoodbyeIsWaitedForForEver) {
  talk_.connect();
  talk_.disconnect();
  talk_.events();
  expectPatience();
}

TEST_F(AnswerLimits, GreetingThatIsNotAnsweredInTimeFailsOnceAndClosesTheChannel) {
  options_.set({.helloLimit = 30000});
  greet();
  time_.pass(29999ms);
  EXPECT_THAT(talk_.events(), IsEmpty());
  time_.pass(1ms);
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", silent("helloError", "hello", 30000)));
  EXPECT_FALSE(handler().messageHost->isOpened);
  EXPECT_THAT(talk_.log.lines(),
              Contains(LogLine{8, "Limit of time reached: TKS did not answer \"hello\" within 30000 ms."}));
  time_.pass(24h);
  EXPECT_THAT(talk_.events(), IsEmpty());
}

TEST_F(AnswerLimits, AnsweredGreetingIsNotLimitedAnyMore) {
  options_.set({.helloLimit = 1000, .disconnectLimit = 1000});
  greet();
  talk_.saysType("hello_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 3", "calls hello"));
  time_.pass(24h);
  EXPECT_THAT(talk_.events(), IsEmpty());
}

TEST_F(AnswerLimits, RepeatingTheGreetingDoesNotBeginAnew) {
  options_.set({.helloLimit = 1000});
  greet();
  time_.pass(900ms);
  talk_.hello();
  EXPECT_THAT(talk_.events(), ElementsAre("sends hello"));
  time_.pass(100ms);
  EXPECT_THAT(talk_.events(), Contains(silent("helloError", "hello", 1000)));
}

TEST_F(AnswerLimits, NextConversationHasTheWholeTimeAgain) {
  options_.set({.helloLimit = 1000});
  greet();
  time_.pass(900ms);
  handler().stopMessageHost();
  greet();
  time_.pass(900ms);
  EXPECT_THAT(talk_.events(), IsEmpty());
  EXPECT_TRUE(handler().messageHost->isOpened);
}

TEST_F(AnswerLimits, LaunchThatIsNotAnsweredInTimeFails) {
  options_.set({.launchLimit = 600000});
  talk_.connect();
  talk_.launch();
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4", "sends launch_meeting"));
  time_.pass(10min);
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", silent("launchError", "launch_meeting", 600000)));
}

TEST_F(AnswerLimits, LaunchHasAnotherLimitThanTheGreeting) {
  options_.set({.helloLimit = 1000});
  talk_.connect();
  talk_.launch();
  time_.pass(24h);
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 4", "sends launch_meeting"));
}

TEST_F(AnswerLimits, EveryAnswerToALaunchEndsItsLimit) {
  options_.set({.launchLimit = 1000});
  for (const std::string answer : {"launch_meeting_ack", "host_notify", "error"}) {
    talk_.connect();
    talk_.launch();
    talk_.events();
    if (answer == "error") {
      talk_.saysError(R"({"error_code":"2006"})");
    } else {
      talk_.saysType(answer);
    }
    EXPECT_THAT(talk_.events(), Contains("sends disconnect")) << answer;
    time_.pass(24h);
    EXPECT_THAT(talk_.events(), IsEmpty()) << answer;
    talk_.saysType("disconnect_ack");
    talk_.events();
  }
}

TEST_F(AnswerLimits, NextLaunchHasTheWholeTimeAgain) {
  options_.set({.launchLimit = 1000});
  talk_.connect();
  talk_.launch();
  time_.pass(900ms);
  talk_.launch();
  talk_.events();
  time_.pass(900ms);
  EXPECT_THAT(talk_.events(), IsEmpty());
  time_.pass(100ms);
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", silent("launchError", "launch_meeting", 1000)));
}

TEST_F(AnswerLimits, GoodbyeThatIsNotAnsweredInTimeFails) {
  options_.set({.disconnectLimit = 10000});
  talk_.connect();
  talk_.disconnect();
  EXPECT_THAT(talk_.events(), ElementsAre("sends disconnect"));
  time_.pass(10s);
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1", silent("disconnectError", "disconnect", 10000)));
}

TEST_F(AnswerLimits, GoodbyeAfterAnErrorIsLimitedAsWell) {
  options_.set({.disconnectLimit = 10000});
  talk_.connect();
  talk_.saysError("\"no\"");
  EXPECT_THAT(talk_.events(), ElementsAre("sends disconnect"));
  time_.pass(10s);
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 1"));
  EXPECT_FALSE(handler().messageHost->isOpened);
}

TEST_F(AnswerLimits, SilenceIsNoticedOnceForEachRequestAndEndsNothing) {
  options_.set({.silenceNotice = 5000});
  greet();
  time_.pass(5s);
  time_.pass(24h);
  EXPECT_THAT(talk_.log.texts(4), ElementsAre("Still no answer to \"hello\" after 5000 ms."));
  talk_.saysType("hello_ack");
  EXPECT_THAT(talk_.events(), ElementsAre("notifies 3", "calls hello"));
  talk_.log.clear();
  talk_.launch();
  talk_.disconnect();
  talk_.events();
  time_.pass(5s);
  EXPECT_THAT(talk_.log.texts(4), ElementsAre("Still no answer to \"launch_meeting\" after 5000 ms.",
                                              "Still no answer to \"disconnect\" after 5000 ms."));
}

TEST_F(AnswerLimits, HandlerMayBeDestroyedByTheErrorAndWhileItWaits) {
  options_.set({.helloLimit = 1000, .silenceNotice = 500});
  greet();
  talk_.whenCalled["helloError"] = [this] { talk_.handler.reset(); };
  time_.pass(1s);
  EXPECT_EQ(talk_.handler, nullptr);
  talk_.handler = std::make_unique<TKSIMessageHandler>();
  talk_.hello();
  talk_.handler.reset();
  EXPECT_EQ(time_.pending(), 0U);
  talk_.handler = std::make_unique<TKSIMessageHandler>();
}

TEST_F(AnswerLimits, ErrorSaysThatNothingWasAnswered) {
  options_.set({.helloLimit = 1});
  TKSError told;
  handler().sendHelloMessage(nullptr, [&](const TKSError& error) { told = error; });
  time_.pass(1ms);
  EXPECT_EQ(told.reason, TKSErrorReason::notAnswered);
}

}  // namespace

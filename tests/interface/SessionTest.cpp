#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "interface/Session.h"

// Those who wait for the launcher, without a launcher and without a loop.

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tks::interface::Event;
using tks::interface::Fate;
using tks::interface::fateOf;
using tks::interface::HostCall;
using tks::interface::kEvents;
using tks::interface::kStages;
using tks::interface::Session;
using tks::interface::Stage;

const TKSError kError{"Test", 7, "why"};

class SessionTest : public testing::Test {
 protected:
  Session::Caller caller(const std::string& name) {
    return {{"finishBlock", [this, name] { told.push_back(name + " finished"); }},
            [this, name](const TKSError& error) { told.push_back(name + " failed: " + error.localizedDescription); }};
  }
  Session::Number add(Stage stage, const std::string& name) { return session.add(stage, caller(name)); }
  /// What an event makes of those who wait.
  std::vector<std::string> on(Event event, const Session::Scope& scope = {}) {
    for (const HostCall& call : session.on(event, scope, kError).calls) call.run();
    return std::exchange(told, {});
  }

  Session session;
  std::vector<std::string> told;
};

struct Row {
  Event event;
  const char* fates;  // starting greeting crossing stopping replacing working worked
};

/// w waits, f finished, e error, a again, d done, - dropped
constexpr std::array<Row, kEvents> kTable = {{
    {Event::launcherFailed, "ewwwwww"},
    {Event::helloAnswered, "wffwwww"},
    {Event::launchAnswered, "wwwwwdw"},
    {Event::goodbyeAnswered, "weaffe-"},
    {Event::channelFailed, "weeeee-"},
    {Event::launcherRefused, "weeeedw"},
    {Event::jobRefused, "wwwwwdw"},
    {Event::jobStopped, "wwwwee-"},
    {Event::greetingStopped, "weeeee-"},
    {Event::dropped, "w------"},
    {Event::destroyed, "-------"},
}};

TEST(SessionTable, SaysWhatBecomesOfEveryStageAtEveryEvent) {
  constexpr std::string_view kLetters = "wfead-";
  for (const Row& row : kTable) {
    for (std::size_t stage = 0; stage < kStages; ++stage) {
      const auto fate = static_cast<std::size_t>(fateOf(row.event, static_cast<Stage>(stage)));
      EXPECT_EQ(kLetters.at(fate), row.fates[stage]) << "event " << static_cast<int>(row.event) << ", stage " << stage;
    }
  }
}

/// The table is what happens: every event to every stage, with and without callbacks.
TEST_F(SessionTest, DoesWhatTheTableSays) {
  for (std::size_t event = 0; event < kEvents; ++event) {
    for (std::size_t at = 0; at < kStages; ++at) {
      SCOPED_TRACE("event " + std::to_string(event) + ", stage " + std::to_string(at));
      const auto stage = static_cast<Stage>(at);
      const Fate fate = fateOf(static_cast<Event>(event), stage);
      session = {};
      add(stage, "one");
      const bool again = session.on(static_cast<Event>(event), {.upTo = 0}, kError).again;
      EXPECT_FALSE(again) << "nobody is concerned";
      Session::Settled settled = session.on(static_cast<Event>(event), {}, kError);
      for (const HostCall& call : settled.calls) call.run();
      const std::vector<std::string> calls = std::exchange(told, {});
      if (fate == Fate::finish) {
        EXPECT_THAT(calls, ElementsAre("one finished"));
      } else if (fate == Fate::fail) {
        EXPECT_THAT(calls, ElementsAre("one failed: why"));
      } else {
        EXPECT_THAT(calls, IsEmpty());
      }
      EXPECT_EQ(settled.again, fate == Fate::again);
      EXPECT_EQ(session.isWaiting(tks::interface::Stages::all()),
                fate == Fate::waits || fate == Fate::again || fate == Fate::done);

      session = {};
      session.add(stage, {});
      EXPECT_THAT(session.on(static_cast<Event>(event), {}, kError).calls, IsEmpty()) << "without callbacks";
    }
  }
}

TEST_F(SessionTest, TellsInTheOrderOfTheRequests) {
  add(Stage::stopping, "first stop");
  add(Stage::greeting, "greeting");
  add(Stage::stopping, "second stop");
  EXPECT_THAT(on(Event::goodbyeAnswered),
              ElementsAre("first stop finished", "greeting failed: why", "second stop finished"));
  EXPECT_THAT(on(Event::goodbyeAnswered), IsEmpty()) << "once";
}

TEST_F(SessionTest, GreetingsThatAreMadeAgainAreAnsweredByTheLauncherThatIsThere) {
  add(Stage::crossing, "one");
  EXPECT_TRUE(session.on(Event::goodbyeAnswered, {}, kError).again);
  session.nameLauncher();
  EXPECT_FALSE(session.isWaiting({Stage::greeting}));
  add(Stage::crossing, "two");
  EXPECT_TRUE(session.on(Event::goodbyeAnswered, {}, kError).again);
  session.greetAgain();
  EXPECT_TRUE(session.isWaiting({Stage::greeting}));
  EXPECT_THAT(on(Event::helloAnswered), ElementsAre("two finished")) << "the other waits for its launcher";
  EXPECT_THAT(on(Event::launcherFailed), ElementsAre("one failed: why"));
}

TEST_F(SessionTest, FailureWithoutAnErrorCallbackIsNeverAFinish) {
  session.add(Stage::stopping, {{"finishBlock", [this] { told.emplace_back("finished"); }}, nullptr});
  EXPECT_THAT(on(Event::channelFailed), IsEmpty());
  EXPECT_THAT(on(Event::goodbyeAnswered), IsEmpty());
}

TEST_F(SessionTest, CallerIsOutOfItBeforeItIsCalled) {
  session.add(Stage::greeting, {{"finishBlock",
                                 [this] {
                                   told.emplace_back(session.isWaiting({Stage::greeting}) ? "waits" : "is out");
                                   add(Stage::greeting, "next");
                                 }},
                                nullptr});
  EXPECT_THAT(on(Event::helloAnswered), ElementsAre("is out"));
  EXPECT_THAT(on(Event::helloAnswered), ElementsAre("next finished"));
}

TEST_F(SessionTest, GreetingAfterTheGoodbyeIsMadeAgain) {
  add(Stage::stopping, "stop");
  session.goodbyeSent();
  EXPECT_EQ(session.greetingStage(), Stage::crossing);
  add(session.greetingStage(), "start");
  EXPECT_THAT(on(Event::goodbyeAnswered), ElementsAre("stop finished"));
  session.conversationEnded();
  EXPECT_EQ(session.greetingStage(), Stage::greeting);
  EXPECT_FALSE(session.isStarting());
  const Session::Number launcher = session.nameLauncher();
  EXPECT_TRUE(session.isStarting());
  session.launcherRuns(launcher);
  EXPECT_FALSE(session.isStarting());
  EXPECT_THAT(on(Event::helloAnswered), ElementsAre("start finished"));
}

TEST_F(SessionTest, LaunchersFailureConcernsThoseWhoWaitForIt) {
  const Session::Number first = session.nameLauncher();
  add(Stage::starting, "first");
  const Session::Number second = session.nameLauncher();
  add(Stage::starting, "second");
  EXPECT_THAT(on(Event::launcherFailed, {.launcher = first}), ElementsAre("first failed: why"));
  session.launcherRuns(second);
  EXPECT_THAT(on(Event::helloAnswered), ElementsAre("second finished"));
}

TEST_F(SessionTest, StartWhoseLauncherIsBeingStartedHearsNothingOfTheConversationBefore) {
  session.nameLauncher();
  add(Stage::starting, "start");
  for (std::size_t event = 0; event < kEvents; ++event) {
    const auto one = static_cast<Event>(event);
    if (one != Event::launcherFailed && one != Event::destroyed) {
      EXPECT_THAT(on(one), IsEmpty()) << event;
    }
  }
  EXPECT_TRUE(session.isStarting());
}

TEST_F(SessionTest, AnswerToAHelloIsForThoseWhoGreetedBeforeTheGoodbye) {
  add(Stage::greeting, "before");
  add(Stage::crossing, "after");
  EXPECT_THAT(on(Event::helloAnswered, {.upTo = session.reachOf(Event::helloAnswered)}),
              ElementsAre("before finished"));
  EXPECT_THAT(on(Event::helloAnswered, {.upTo = session.reachOf(Event::helloAnswered)}), ElementsAre("after finished"));
}

TEST_F(SessionTest, JobIsKnownByItsNumberUntilItIsStopped) {
  const Session::Number job = session.add(Stage::working, {});
  on(Event::launchAnswered);
  EXPECT_FALSE(session.isWaiting({Stage::working}));
  EXPECT_TRUE(session.forget(job)) << "it may still be launched again";
  const Session::Number next = session.add(Stage::working, {});
  on(Event::jobStopped);
  EXPECT_FALSE(session.forget(next));
}

TEST_F(SessionTest, NextJobEndsTheMemoryOfTheOneBefore) {
  const Session::Number job = session.add(Stage::working, {});
  on(Event::jobRefused);
  session.add(Stage::working, {});
  EXPECT_FALSE(session.forget(job));
}

TEST(EpochTest, MomentIsOverOnceItsEpochHasEnded) {
  tks::Epoch epoch;
  const tks::Epoch::Moment before = epoch.now();
  EXPECT_FALSE(before.isOver());
  epoch.end();
  EXPECT_TRUE(before.isOver());
  EXPECT_FALSE(epoch.now().isOver());
}

TEST(EpochTest, MomentIsOverOnceItsEpochIsDestroyed) {
  auto epoch = std::make_unique<tks::Epoch>();
  const tks::Epoch::Moment moment = epoch->now();
  epoch.reset();
  EXPECT_TRUE(moment.isOver());
}

}  // namespace

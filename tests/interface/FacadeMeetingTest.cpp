#include <memory>

#include "tests/interface/FacadeTest.h"

// Callers that meet: what one of them is told does not depend on what another one left behind.

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using tks::test::drainUntil;
using tks::test::FacadeTest;

constexpr const char* kNoAnswer = "TKS disconnected before it answered.";

class FacadeMeeting : public FacadeTest {
 protected:
  /// A new launcher has pipes of its own.
  void makeNewPipes() {
    world_.channels.input = std::make_shared<tks::test::Wire>();
    world_.channels.output = std::make_shared<tks::test::Wire>();
  }
  bool waitForLine(std::int32_t level, const std::string& text) {
    return drainUntil([&] { return log_.has(level, text); });
  }
  /// A callback, and whether anybody still keeps it.
  TKSErrorBlock watched(const std::string& name, std::weak_ptr<int>& kept) {
    auto token = std::make_shared<int>();
    kept = token;
    return [this, name, token](const TKSError& error) { calls_.push_back(name + ": " + error.localizedDescription); };
  }
};

// A start that crossed our own goodbye.

TEST_F(FacadeMeeting, GreetingMadeAgainWhoseLauncherIsMissingHearsThatOnce) {
  connect();
  std::weak_ptr<int> kept;
  tks_.stop(finish("stopped"), error());
  tks_.start(finish("started"), watched("start failed", kept));
  tks_.setTKSAppPath("/nowhere/A.app");
  world_.says("disconnect_ack");
  ASSERT_TRUE(drainUntil([&] { return calls_.size() == 2; }));
  EXPECT_THAT(called(), ElementsAre("stopped", StartsWith("start failed: Launch app failed. Path: /nowhere/A.app")));
  EXPECT_TRUE(kept.expired());
  // What failed is not reported as done by the answer to a later greeting.
  tks_.setTKSAppPath(world_.bundle());
  world_.heard();
  connect();
}

TEST_F(FacadeMeeting, GreetingMadeAgainLetsGoOfItsCallbacksOnceItIsAnswered) {
  connect();
  std::weak_ptr<int> kept;
  tks_.stop(nullptr, nullptr);
  tks_.start(finish("started"), watched("start failed", kept));
  world_.heard();
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  EXPECT_THAT(called(), ElementsAre("started"));
  EXPECT_TRUE(kept.expired());
}

TEST_F(FacadeMeeting, StartInTheCallbackOfAGreetingMadeAgainWaitsForItsOwnAnswer) {
  connect();
  tks_.stop(nullptr, nullptr);
  tks_.start(
      [this] {
        calls_.emplace_back("first");
        tks_.start(finish("second"), error("second failed"));
      },
      error("first failed"));
  world_.heard();
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  settle();
  EXPECT_THAT(called(), ElementsAre("first"));
  world_.says("hello_ack");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("second"));
}

TEST_F(FacadeMeeting, TwoGreetingsMadeAgainShareOneLauncher) {
  connect();
  tks_.stop(finish("stopped"), error());
  tks_.start(finish("first"), error("first failed"));
  tks_.start(finish("second"), error("second failed"));
  world_.heard();
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_EQ(world_.processes.count(), 2u);
  world_.says("hello_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  EXPECT_THAT(called(), ElementsAre("stopped", "first", "second"));
}

TEST_F(FacadeMeeting, GreetingMadeAgainJoinsTheStartThatTheCallbackOfTheStopBegan) {
  connect();
  tks_.stop([this] { tks_.start(finish("new"), error("new failed")); }, error());
  tks_.start(finish("again"), error("again failed"));
  world_.heard();
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_EQ(world_.processes.count(), 2u);
  world_.says("hello_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  EXPECT_THAT(called(), testing::UnorderedElementsAre("new", "again"));
}

TEST_F(FacadeMeeting, GreetingMadeAgainJoinsAStartThatFailsAndIsToldOnce) {
  connect();
  tks_.stop(
      [this] {
        tks_.setTKSAppPath("/nowhere/A.app");
        tks_.start(finish("new"), error("new failed"));
      },
      error());
  tks_.start(finish("again"), error("again failed"));
  world_.says("disconnect_ack");
  ASSERT_TRUE(drainUntil([&] { return calls_.size() == 2; }));
  settle();
  EXPECT_THAT(called(), testing::UnorderedElementsAre(StartsWith("new failed: Launch app failed."),
                                                      StartsWith("again failed: Launch app failed.")));
}

TEST_F(FacadeMeeting, GreetingAnsweredBeforeTheGoodbyeLeavesNothingForALaterConversation) {
  connect();
  tks_.stop(finish("stopped"), error());
  tks_.start(finish("started"), error("start failed"));
  world_.says("hello_ack");
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_THAT(called(), ElementsAre("started", "stopped"));

  world_.heard();
  startUntilGreeted();
  world_.says("disconnect_ack");  // the launcher leaves by itself
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_THAT(called(), ElementsAre(std::string("start failed: ") + kNoAnswer));
  EXPECT_EQ(world_.processes.count(), 2u) << "no launcher is started silently";
}

TEST_F(FacadeMeeting, LaunchThatCrossedTheGoodbyeOfTheOneBeforeIsMadeAgain) {
  launch();
  world_.says("hello_ack");  // nobody asked: the status says "connected" while the job runs
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  world_.says("launch_meeting_ack", "{}");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("disconnect"));
  EXPECT_THAT(called(), ElementsAre("launched"));
  tks_.launchMeetingWithParam(TKSDictionary(), finish("second launched"), error("second failed"));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_EQ(world_.processes.count(), 2u);
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("launch_meeting"));
  EXPECT_THAT(calls_, IsEmpty());
}

// A stop that failed.

TEST_F(FacadeMeeting, StopThatFailedWithoutAnErrorCallbackFinishesNever) {
  connect();
  tks_.stop(finish("stopped"), nullptr);
  world_.channels.input->end();
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_THAT(called(), IsEmpty());
}

TEST_F(FacadeMeeting, JobThatWaitsForAStopThatFailedIsNotLaunched) {
  launch();
  tks_.launchMeetingWithParam(TKSDictionary(), finish("second launched"), nullptr);
  called();
  world_.channels.input->end();
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_THAT(called(), IsEmpty());
  EXPECT_EQ(world_.processes.count(), 1u);
}

TEST_F(FacadeMeeting, StopThatFailedAfterItCrossedTheAnswerToALaunchIsTold) {
  launch();
  tks_.stop(finish("stopped"), error("stop failed"));
  called();
  world_.says("launch_meeting_ack", "{}");
  ASSERT_TRUE(waitForLine(2, "Handle message of type: launch_meeting_ack"));
  world_.channels.input->end();
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_THAT(called(), ElementsAre(StartsWith("stop failed: Message data size ( 0 )")));
}

TEST_F(FacadeMeeting, StopThatTheLauncherAnswersWithAnErrorAndThenAGoodbyeIsToldOnce) {
  connect();
  tks_.stop(finish("stopped"), error("stop failed"));
  world_.says("error", "\"no\"");
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_THAT(called(), ElementsAre("stop failed: no"));
}

TEST_F(FacadeMeeting, SecondStopOfARunningLaunchLetsTheFirstWaitForTheSameGoodbye) {
  launch();
  tks_.stop(finish("first"), error("first failed"));
  EXPECT_THAT(called(), ElementsAre("launch failed: Previous launching job running, will stop it firstly."));
  tks_.stop(finish("second"), error("second failed"));
  EXPECT_THAT(called(), IsEmpty());
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_THAT(called(), ElementsAre("first", "second"));
}

// An error of the launcher that is no answer to everybody.

TEST_F(FacadeMeeting, GreetingIsAnsweredThoughTheLauncherRefusedAJobInBetween) {
  connect();
  tks_.start(finish("started"), error("start failed"));
  world_.says("error", R"({"error_code":"2003"})");
  ASSERT_TRUE(waitForLine(2, "On error message. About to disconnect."));
  world_.says("hello_ack");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("started"));
}

TEST_F(FacadeMeeting, LauncherThatEndsAfterARefusedGreetingLeavesTheFacadeUsable) {
  tks_.launchMeetingWithParam(TKSDictionary(), finish("launched"), error("launch failed"));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("error", "\"not now\"");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("launch failed: Unexpected app status: 2"));
  world_.processes.end(0, {tks::platform::ChildEnd::How::exited, 0});
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  makeNewPipes();
  connect();
}

}  // namespace

#include <memory>

#include "tests/interface/FacadeTest.h"

// A facade that is destroyed by one of its own callbacks. What the facade touches afterwards shows under the address
// sanitizer; what it calls afterwards shows here.

namespace {

using testing::ElementsAre;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::FacadeTest;

class FacadeDestroyed : public FacadeTest {
 protected:
  FacadeDestroyed() : facade_(std::make_unique<TKSInterface>()) { facade_->setTKSAppPath(world_.bundle()); }

  TKSFinishBlock destroys() {
    return [this] {
      calls_.emplace_back("destroyed");
      facade_.reset();
    };
  }
  TKSErrorBlock destroysOnError() {
    return [this](const TKSError&) { destroys()(); };
  }
  TKSInterface& facade() { return *facade_; }
  std::int32_t statusNow() const { return facade_->appManager->TKSAppStatus; }

  void greet(TKSFinishBlock finish = nullptr, TKSErrorBlock error = nullptr) {
    facade().start(std::move(finish), std::move(error));
    ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  }
  void connectIt() {
    greet();
    world_.says("hello_ack");
    ASSERT_TRUE(drainUntil([&] { return statusNow() == TKSI_APP_STATUS_CONNECTED; }));
  }
  void launchIt(TKSFinishBlock finish = nullptr, TKSErrorBlock error = nullptr) {
    facade().launchMeetingWithParam(TKSDictionary(), std::move(finish), std::move(error));
    ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
    world_.says("hello_ack");
    ASSERT_THAT(waitUntilHeard(), ElementsAre("launch_meeting"));
  }
  /// Once destroyed, the facade is silent, whatever arrives.
  void expectDestroyed() {
    ASSERT_TRUE(drainUntil([&] { return facade_ == nullptr; }));
    for (const char* const late : {"hello_ack", "launch_meeting_ack", "error", "disconnect_ack"}) world_.says(late);
    world_.channels.input->end();
    drainFor(std::chrono::milliseconds(20));
    EXPECT_THAT(called(), ElementsAre("destroyed"));
    for (const std::string& text : log_.texts(8)) EXPECT_FALSE(text.starts_with("Callback '")) << text;
  }

  std::unique_ptr<TKSInterface> facade_;
};

TEST_F(FacadeDestroyed, ByTheFinishOfAStart) {
  greet(destroys(), error());
  world_.says("hello_ack");
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheFirstOfTwoGreetings) {
  connectIt();
  facade().start(destroys(), error());
  facade().start(finish("second"), error("second failed"));
  world_.says("hello_ack");
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByAGreetingBeforeThatOfALaunch) {
  connectIt();
  facade().start(destroys(), error());
  facade().launchMeetingWithParam(TKSDictionary(), finish("launched"), error("launch failed"));
  world_.says("hello_ack");
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfAStartWhoseLauncherIsMissing) {
  facade().setTKSAppPath("/nowhere/A.app");
  facade().start(finish(), destroysOnError());
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfARefusedStart) {
  greet(finish(), error());
  facade().start(finish("second"), destroysOnError());
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfAStartWhoseChannelEnds) {
  greet(finish(), destroysOnError());
  world_.channels.input->end();
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheProcessIdentifier) {
  facade().launchedTKSPidBlock([this](std::int32_t) { destroys()(); });
  facade().start(finish(), error());
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheFinishOfAStopThatWasNotNeeded) {
  facade().stop(destroys(), error());
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheFinishOfAStop) {
  connectIt();
  facade().stop(destroys(), error());
  world_.says("disconnect_ack");
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheFirstOfTwoStops) {
  connectIt();
  facade().stop(destroys(), error());
  facade().stop(finish("second"), error("second failed"));
  world_.says("disconnect_ack");
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByAStopBeforeAGreetingThatWouldBeMadeAgain) {
  connectIt();
  facade().stop(destroys(), error());
  facade().start(finish("started"), error("start failed"));
  world_.says("disconnect_ack");
  expectDestroyed();
  EXPECT_EQ(world_.processes.count(), 1u);
}

TEST_F(FacadeDestroyed, ByTheFinishOfAStopThatCrossedTheAnswerToTheLaunch) {
  launchIt();
  facade().stop(destroys(), nullptr);
  world_.says("launch_meeting_ack", "{}");
  world_.says("disconnect_ack");
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfAStopWhileTheLauncherStarts) {
  facade().start(finish(), error());
  facade().stop(finish("stopped"), destroysOnError());
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfAStopWhileAGreetingWaits) {
  greet(finish(), error());
  facade().stop(finish("stopped"), destroysOnError());
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfAGreetingThatAStopEnds) {
  greet(finish(), destroysOnError());
  facade().stop(finish("stopped"), nullptr);
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfAStopWhoseChannelEnds) {
  connectIt();
  facade().stop(finish("stopped"), destroysOnError());
  facade().start(finish("started"), error("start failed"));
  world_.channels.input->end();
  ASSERT_TRUE(drainUntil([&] { return facade_ == nullptr; }));
  // The greeting was told first: errors reach greetings before stops.
  ASSERT_EQ(calls_.size(), 2u);
  EXPECT_THAT(calls_.at(0), testing::StartsWith("start failed: "));
  EXPECT_EQ(calls_.at(1), "destroyed");
}

TEST_F(FacadeDestroyed, ByTheFinishOfALaunch) {
  launchIt(destroys(), error());
  world_.says("launch_meeting_ack", "{}");
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfALaunchThatAStopGivesUp) {
  launchIt(finish(), destroysOnError());
  facade().stop(finish("stopped"), error("stop failed"));
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfALaunchThatAnotherTakesThePlaceOf) {
  launchIt(finish(), destroysOnError());
  facade().launchMeetingWithParam(TKSDictionary(), finish("second"), error("second failed"));
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfALaunchThatTheLauncherRefuses) {
  launchIt(finish(), destroysOnError());
  world_.says("error", R"({"error_code":"2002"})");
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfALaunchThatTheLauncherLeavesUnanswered) {
  launchIt(finish(), destroysOnError());
  world_.says("disconnect_ack");
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfALaunchWithoutParameters) {
  facade().launchMeetingWithParam({}, finish(), destroysOnError());
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfADownloadThatIsRefused) {
  launchIt(finish(), error());
  facade().launchMeetingWithParam(TKSDictionary{{"gpcdownloadonly", "1"}}, finish("second"), destroysOnError());
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfALaunchWhoseStartFails) {
  facade().setTKSAppPath("/nowhere/A.app");
  facade().launchMeetingWithParam(TKSDictionary(), finish(), destroysOnError());
  expectDestroyed();
}

TEST_F(FacadeDestroyed, ByTheErrorOfARelaunchThatIsOver) {
  facade().appManager->connectedTKSPid = -1;
  facade().relaunchTKSWhenUpdateDone(TKSDictionary(), finish(), destroysOnError());
  expectDestroyed();
}

}  // namespace

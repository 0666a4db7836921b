#include "tests/interface/FacadeTest.h"

// Starting the launcher, step by step: what comes first, what a failure leaves, and what the status says.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using tks::test::drainUntil;
using tks::test::FacadeTest;
using tks::test::LogLine;

class FacadeLauncher : public FacadeTest {
 protected:
  /// Where a line stands in the log; the number of lines when it is not there.
  std::ptrdiff_t position(std::int32_t level, const std::string& beginning) {
    const std::vector<LogLine> lines = log_.lines();
    const auto found = std::find_if(lines.begin(), lines.end(), [&](const LogLine& line) {
      return line.level == level && line.text.starts_with(beginning);
    });
    return found - lines.begin();
  }
};

TEST_F(FacadeLauncher, EachStatusPredicateNamesOneStatus) {
  struct Case {
    TKSIAppStatus status;
    std::int32_t value;
    bool suspending, processing;
  };
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED) << "the first one";
  for (const Case& one :
       {Case{TKSI_APP_STATUS_UNCONNECTED, 1, false, false}, Case{TKSI_APP_STATUS_STARTING, 2, false, false},
        Case{TKSI_APP_STATUS_CONNECTED, 3, true, false}, Case{TKSI_APP_STATUS_LAUNCHING, 4, false, true}}) {
    tks_.appManager->TKSAppStatus = one.status;
    EXPECT_EQ(status(), one.value);
    EXPECT_EQ(tks_.isTKSAppSuspending(), one.suspending) << one.value;
    EXPECT_EQ(tks_.isTKSAppProcessing(), one.processing) << one.value;
  }
}

TEST_F(FacadeLauncher, OnlyTheStartOfALauncherNotesTheHostsIdentifier) {
  world_.bundles.identifier = "com.example.First";
  connect();
  world_.bundles.identifier = "com.example.Second";
  tks_.start(finish(), error());
  EXPECT_EQ(tks_.bundleID, "com.example.First");
}

TEST_F(FacadeLauncher, ChannelOfAHostWithPipesIsOpenedWhenItsLauncherRuns) {
  tks_.start(finish(), error());
  EXPECT_FALSE(tks_.messageHandler->messageHost->isOpened);
  EXPECT_EQ(tks_.messageHandler->messageHost->tempIPCFileFullPathFromTKS2Interface, "");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_TRUE(tks_.messageHandler->messageHost->isOpened);
}

TEST_F(FacadeLauncher, LaunchersIdentifierIsKeptThenToldThenTheLauncherIsGreeted) {
  const std::string greeting = "TKS launched, pid: 4711. Start message host, and send hello message to test";
  tks_.launchedTKSPidBlock([&](std::int32_t pid) {
    EXPECT_EQ(tks_.appManager->launchedTKSPid, pid);
    EXPECT_FALSE(log_.has(2, greeting));
    EXPECT_THAT(world_.heard(), IsEmpty());
    calls_.push_back("told");
  });
  tks_.start(nullptr, nullptr);
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_THAT(called(), ElementsAre("told"));
  EXPECT_TRUE(log_.has(2, greeting));
}

TEST_F(FacadeLauncher, FailedLaunchGoesBackThenTellsTheLogThenLooksAtTheLauncherThenTellsTheHost) {
  world_.preferences.values = {};
  world_.makeALauncherOfIt();
  tks_.start(finish(), [&](const TKSError&) {
    EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
    EXPECT_TRUE(log_.has(8, "App broken, about to clean up the broken tks app."));
    EXPECT_FALSE(std::filesystem::exists(world_.bundle()));
    calls_.push_back("told");
  });
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  const std::ptrdiff_t back = position(2, "Switch TKS app status to: UNCONNECTED");
  const std::ptrdiff_t failed = position(8, "Launch app failed. Path: ");
  const std::ptrdiff_t broken = position(8, "App broken, about to clean up the broken tks app.");
  EXPECT_LT(back, failed);
  EXPECT_EQ(failed, back + 1);
  EXPECT_LT(failed, broken);
  EXPECT_LT(broken, std::ssize(log_.lines()));
}

TEST_F(FacadeLauncher, ProcessThatIsNeverListedIsAFailedLaunchAndNobodySleepsOnTheMainThread) {
  world_.processes.hide();
  tks_.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("error: Launch app failed. Path: " + world_.executable() +
                                    ". Error: Getting running app process timeout (more than 30 s). Path: " +
                                    world_.executable()));
  EXPECT_EQ(world_.clock.sleepsOnMainThread(), 0);
}

TEST_F(FacadeLauncher, ProcessThatEndsBeforeItIsListedIsAFailedLaunchThatNamesTheEnd) {
  world_.processes.hide();
  world_.clock.onSleep = [&] {
    if (world_.clock.sleeps().size() == 2) world_.processes.end(0, {tks::platform::ChildEnd::How::killed, 6});
  };
  tks_.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("error: Launch app failed. Path: " + world_.executable() +
                                    ". Error: Launched process ended before it was running (signal: 6). Path: " +
                                    world_.executable()));
  EXPECT_EQ(world_.clock.sleeps().size(), 2u);
}

TEST_F(FacadeLauncher, StartThatFailsForALaunchIsFollowedByAStopWhoseOwnFailureIsReported) {
  tks_.start(finish("started"), error("start failed"));
  log_.clear();
  tks_.internalLaunchMeetingWithParam(TKSDictionary(), finish("launched"), error("launch failed"));
  EXPECT_LT(position(4, "Start failed: Unexpected app status: 2"),
            position(4, "Stop failed: Unexpected app status: 2"));
  EXPECT_TRUE(log_.has(4, "Stop failed: Unexpected app status: 2"));
  EXPECT_THAT(called(), ElementsAre("launch failed: Unexpected app status: 2"));
  EXPECT_THAT(waitUntilHeard(), ElementsAre("hello"));  // the first start goes on
}

TEST_F(FacadeLauncher, AbsentCallbacksAreNotCalledWhateverTheStatus) {
  for (const std::int32_t found : {1, 2, 3, 4}) {
    SCOPED_TRACE(found);
    for (const int operation : {0, 1, 2, 3, 4}) {
      TKSInterface tks;
      tks.setTKSAppPath("/nowhere/A.app");
      tks.appManager->TKSAppStatus = static_cast<TKSIAppStatus>(found);
      switch (operation) {
        case 0:
          tks.start(nullptr, nullptr);
          break;
        case 1:
          tks.stop(nullptr, nullptr);
          break;
        case 2:
          tks.launchMeetingWithParam(TKSDictionary{{"gpcdownloadonly", "1"}}, nullptr, nullptr);
          break;
        case 3:
          tks.appManager->connectedTKSPid = -1;
          tks.relaunchTKSWhenUpdateDone({}, nullptr, nullptr);
          break;
        default:
          tks.internalLaunchMeetingWithParam({}, nullptr, nullptr);
      }
      settle();
    }
  }
  EXPECT_THAT(log_.texts(8), testing::Not(Contains(StartsWith("Callback '"))));
}

}  // namespace

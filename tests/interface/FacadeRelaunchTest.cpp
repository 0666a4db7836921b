#include "tests/interface/FacadeTest.h"
#include "tests/support/FakeBackgroundWork.h"

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using tks::test::drainUntil;
using tks::test::FacadeTest;
using tks::test::LogLine;
using tks::test::NoThreads;

class FacadeRelaunch : public FacadeTest {
 protected:
  void relaunch() { tks_.relaunchTKSWhenUpdateDone(TKSDictionary(), finish("launched"), error("launch failed")); }
  std::size_t count(const std::string& text) {
    const std::vector<std::string> lines = log_.texts(2);
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), text));
  }
};

TEST_F(FacadeRelaunch, WithoutAnOldLauncherLaunchesAtOnce) {
  relaunch();
  EXPECT_EQ(log_.lines().at(0),
            (LogLine{2, "-[TKSInterface relaunchTKSWhenUpdateDone:launchFinishBlock:launchErrorBlock:]"}));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_THAT(log_.texts(2), Contains(StartsWith("Background check if TKS app quited (TKS pid: 0) (thread id: ")));
  EXPECT_THAT(log_.texts(2), Contains(StartsWith("Checking done, back to main thread: ")));
  EXPECT_TRUE(log_.has(2, "Launch again."));
  EXPECT_TRUE(log_.has(2, "About to launch meetting."));
  EXPECT_EQ(count("App quited. Ready to launch again."), 0u);
}

TEST_F(FacadeRelaunch, WaitsOffTheMainThreadUntilTheOldLauncherHasQuit) {
  tks_.appManager->connectedTKSPid = 77;
  world_.processes.addRunning(77, 4);
  relaunch();
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_THAT(log_.texts(2), Contains(StartsWith("Background check if TKS app quited (TKS pid: 77) (thread id: ")));
  EXPECT_EQ(count("Still running... check after 100ms"), 3u);
  EXPECT_EQ(count("App quited. Ready to launch again."), 1u);
  EXPECT_EQ(world_.clock.sleepsOnMainThread(), 0);
  EXPECT_EQ(tks_.connectedTKSAppPid(), 0);
}

TEST_F(FacadeRelaunch, GivesUpAfterFiftyOneLooks) {
  tks_.appManager->connectedTKSPid = 77;
  world_.processes.addRunning(77);
  relaunch();
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_EQ(world_.processes.looks(), 51);
  EXPECT_EQ(count("Still running... check after 100ms"), 51u);
  EXPECT_THAT(world_.clock.sleeps(), testing::AllOf(SizeIs(51), Each(std::chrono::microseconds(100ms))));
  const std::string text = "TKS app failed to quit, checking timeout. Path: /Users/jane/A.app";
  const std::string shown = TKSILog::removeSensitiveInformation(text);
  EXPECT_NE(shown, text);
  EXPECT_THAT(called(), ElementsAre("launch failed: " + shown));
  EXPECT_EQ(lastError_.domain, "TKSIDefaultDomain");
  EXPECT_EQ(lastError_.code, 0);
  EXPECT_TRUE(log_.has(4, shown));
  EXPECT_EQ(world_.clock.sleepsOnMainThread(), 0);
  EXPECT_EQ(world_.processes.count(), 0u);
}

TEST_F(FacadeRelaunch, WithoutAThreadToWaitOnIsAnError) {
  tks_.appManager->connectedTKSPid = 77;
  const NoThreads none;
  relaunch();
  EXPECT_THAT(called(), ElementsAre("launch failed: No thread to wait on for TKS app to quit."));
  EXPECT_TRUE(log_.has(4, "No thread to wait on for TKS app to quit."));
}

TEST_F(FacadeRelaunch, QuitAtTheLastLookStillLaunches) {
  tks_.appManager->connectedTKSPid = 77;
  world_.processes.addRunning(77, 51);
  relaunch();
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_EQ(count("Still running... check after 100ms"), 50u);
}

TEST_F(FacadeRelaunch, NegativeIdentifierIsNotPolledAndFails) {
  tks_.appManager->connectedTKSPid = -1;
  relaunch();
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_EQ(world_.processes.looks(), 0);
  EXPECT_THAT(called(), ElementsAre("launch failed: TKS app failed to quit, checking timeout. Path: (null)"));
}

TEST_F(FacadeRelaunch, FollowsASelfUpdateWithTheSameParametersAndCallbacks) {
  launch(TKSDictionary{{"confid", "42"}});
  world_.says("host_notify");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("disconnect"));
  EXPECT_THAT(calls_, IsEmpty());
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_EQ(world_.processes.count(), 2u);
  // The goodbye has cleared the identifier, so that nothing is left to wait for.
  EXPECT_THAT(log_.texts(2), Contains(StartsWith("Background check if TKS app quited (TKS pid: 0) (thread id: ")));
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("launch_meeting"));
  EXPECT_EQ(world_.lastMessage["message"], TKSValue(TKSDictionary{{"confid", "42"}}));
  world_.says("launch_meeting_ack", "{}");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("launched"));
}

TEST_F(FacadeRelaunch, FailureAfterASelfUpdateIsReportedOnce) {
  launch();
  world_.says("host_notify");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("disconnect"));
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.channels.input->end();
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  settle();
  EXPECT_THAT(called(), ElementsAre(StartsWith("launch failed: Message data size ( 0 )")));
}

TEST_F(FacadeRelaunch, FacadeMayBeDestroyedWhileItWaits) {
  {
    TKSInterface tks;
    tks.appManager->connectedTKSPid = 77;
    world_.processes.addRunning(77);
    tks.relaunchTKSWhenUpdateDone(TKSDictionary(), finish(), error());
  }
  drainUntil([&] { return world_.processes.looks() >= 1; }, 100ms);
  settle();
  EXPECT_THAT(calls_, IsEmpty());
}

TEST_F(FacadeRelaunch, RelaunchThatTimesOutLeavesStatusAndIdentifierAlone) {
  tks_.appManager->connectedTKSPid = 77;
  world_.processes.addRunning(77);
  tks_.relaunchTKSWhenUpdateDone(TKSDictionary(), finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_EQ(tks_.connectedTKSAppPid(), 77);
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_FALSE(log_.has(2, "Launch again."));
  EXPECT_FALSE(log_.has(2, "About to launch meetting."));
}

}  // namespace

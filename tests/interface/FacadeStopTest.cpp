#include "tests/interface/FacadeTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::drainUntil;
using tks::test::FacadeTest;
using tks::test::LogLine;

constexpr const char* kNoCleanup = "Ipc by pipe. Don't need cleanup connect status of interface.";
constexpr const char* kCleanup = "Ipc by file. Need cleanup connect status of interface.";

class FacadeStop : public FacadeTest {};

TEST_F(FacadeStop, WithoutAConversationSucceedsAtOnce) {
  tks_.stop(finish(), error());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "-[TKSInterface stop:errorBlock:],  connected pid: 0"},
                                        LogLine{4, "TKS app status: UNCONNECTED. No need to stop."},
                                        LogLine{2, kNoCleanup}, LogLine{2, "-[TKSIMessageHandler stopMessageHost]"}));
  EXPECT_THAT(called(), ElementsAre("finish"));
}

TEST_F(FacadeStop, OfAConnectedLauncherDisconnects) {
  connect();
  log_.clear();
  tks_.stop(finish("stopped"), error());
  std::vector<LogLine> lines = log_.lines();
  EXPECT_THAT(lines.at(0), (LogLine{2, "-[TKSInterface stop:errorBlock:],  connected pid: 4711"}));
  EXPECT_THAT(lines.at(1), (LogLine{2, "TKS app status: CONNECTED. Stop directlly."}));
  EXPECT_THAT(lines.back(), (LogLine{2, kNoCleanup}));
  EXPECT_THAT(world_.heard(), ElementsAre("disconnect"));
  EXPECT_EQ(status(), TKSI_APP_STATUS_CONNECTED);
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_THAT(called(), ElementsAre("stopped"));
  EXPECT_EQ(tks_.connectedTKSAppPid(), 0);
  EXPECT_FALSE(tks_.messageHandler->messageHost->isOpened);
}

TEST_F(FacadeStop, OfARunningLaunchTellsThatLaunchFirst) {
  launch();
  log_.clear();
  tks_.stop(finish("stopped"), error("stop failed"));
  EXPECT_EQ(log_.lines().at(1), (LogLine{4, "TKS app status: LAUNCHING. Abort processing job."}));
  EXPECT_THAT(log_.texts(2), testing::Not(Contains("TKS app status: CONNECTED. Stop directlly.")));
  EXPECT_THAT(called(), ElementsAre("launch failed: Previous launching job running, will stop it firstly."));
  EXPECT_EQ(lastError_.domain, "TKSIDefaultDomain");
  EXPECT_EQ(lastError_.code, 1);
  EXPECT_THAT(world_.heard(), ElementsAre("disconnect"));
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_THAT(called(), ElementsAre("stopped"));
}

TEST_F(FacadeStop, WhileTheLauncherIsBeingStartedFailsAndDoesNotCancelTheLaunch) {
  tks_.start(finish("started"), error("start failed"));
  log_.clear();
  tks_.stop(finish("stopped"), error("stop failed"));
  EXPECT_THAT(called(), ElementsAre("stop failed: Unexpected app status: 2"));
  EXPECT_TRUE(log_.has(2, kNoCleanup));
  EXPECT_TRUE(log_.has(2, "-[TKSIMessageHandler stopMessageHost]"));
  EXPECT_TRUE(log_.has(4, "Stop failed: Unexpected app status: 2"));
  EXPECT_EQ(status(), TKSI_APP_STATUS_STARTING);
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  EXPECT_THAT(called(), ElementsAre("started"));
}

TEST_F(FacadeStop, WhileAGreetingWaitsEndsItToo) {
  startUntilGreeted();
  tks_.stop(finish("stopped"), error("stop failed"));
  EXPECT_FALSE(tks_.messageHandler->messageHost->isOpened);
  EXPECT_THAT(called(), ElementsAre("stop failed: Unexpected app status: 2",
                                    "start failed: Message host stopped before TKS answered hello."));
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
  connect();
}

TEST_F(FacadeStop, WithoutCallbacksIsSilent) {
  tks_.stop(nullptr, nullptr);
  connect();
  tks_.stop(nullptr, nullptr);
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_THAT(calls_, IsEmpty());
}

TEST_F(FacadeStop, TwiceTellsBoth) {
  connect();
  tks_.stop(finish("first"), error());
  tks_.stop(finish("second"), error());
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_THAT(called(), ElementsAre("first", "second"));
}

TEST_F(FacadeStop, TransportFailureReachesEveryStopOnceAndNoneLater) {
  connect();
  tks_.stop(finish("first"), error("first failed"));
  tks_.stop(finish("second"), error("second failed"));
  world_.channels.input->end();
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  ASSERT_EQ(calls_.size(), 2u);
  EXPECT_THAT(calls_.at(0), testing::StartsWith("first failed: Message data size ( 0 )"));
  EXPECT_THAT(calls_.at(1), testing::StartsWith("second failed: Message data size ( 0 )"));
}

TEST_F(FacadeStop, ThatCrossesTheAnswerToTheLaunchIsAnsweredAllTheSame) {
  launch();
  tks_.stop(finish("stopped"), error("stop failed"));
  EXPECT_THAT(called(), ElementsAre("launch failed: Previous launching job running, will stop it firstly."));
  world_.says("launch_meeting_ack", "{}");
  ASSERT_TRUE(drainUntil([&] { return log_.has(2, "Handle message of type: launch_meeting_ack"); }));
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_THAT(called(), ElementsAre("stopped"));
}

TEST_F(FacadeStop, ThatCrossesASelfUpdateDoesNotLaunchAgain) {
  launch();
  tks_.stop(finish("stopped"), error("stop failed"));
  called();
  world_.says("host_notify");
  ASSERT_TRUE(drainUntil([&] { return log_.has(2, "Handle message of type: host_notify"); }));
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_TRUE(log_.has(4, "TKS self update done, but its job was stopped. Don't launch again."));
  EXPECT_THAT(called(), ElementsAre("stopped"));
  EXPECT_EQ(world_.processes.count(), 1u);
}

TEST_F(FacadeStop, StartAfterItBeginsAgainWithANewLauncher) {
  connect();
  tks_.stop(finish("stopped"), error());
  tks_.start(finish("started"), error("start failed"));
  EXPECT_THAT(world_.heard(), ElementsAre("disconnect", "hello"));
  world_.says("disconnect_ack");
  ASSERT_TRUE(drainUntil([&] { return world_.processes.count() == 2; }));
  EXPECT_TRUE(log_.has(4, "TKS disconnected before it answered hello. Start again."));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  EXPECT_THAT(called(), ElementsAre("stopped", "started"));
}

TEST_F(FacadeStop, WhileANewLauncherStartsForAGreetingOfTheOldOneLeavesItStarting) {
  connect();
  tks_.stop(finish("stopped"), error("stop failed"));
  tks_.start(finish("started again"), error("start failed"));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("disconnect", "hello"));
  world_.processes.onStart = [this] { tks_.stop(finish("stopped twice"), error("second stop failed")); };
  world_.says("disconnect_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_THAT(called(), ElementsAre("stopped", "second stop failed: Unexpected app status: 2"));
  EXPECT_EQ(status(), TKSI_APP_STATUS_STARTING);
  world_.says("hello_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  EXPECT_THAT(called(), ElementsAre("started again"));
  EXPECT_EQ(world_.processes.count(), 2u);
}

class FacadeStopOfAFileHost : public FacadeStop {
 protected:
  FacadeStopOfAFileHost() { world_.bundles.identifier = "Tarvo-Systems.Ember"; }

  /// A file host in status 3 whose launcher has been forgotten.
  void connectOverFiles(TKSInterface& tks) {
    tks.setTKSAppPath(world_.bundle());
    tks.start(finish("started"), error("start failed"));
    ASSERT_TRUE(drainUntil([&] { return tks.appManager->launchedTKSPid > 0; }));
    tks.messageHandler->messageHost->onMessage(
        tks::test::frame(R"({"message_type":"hello_ack","message":"hello_ack"})"));
    ASSERT_THAT(called(), ElementsAre("started"));
  }
};

TEST_F(FacadeStopOfAFileHost, EndsTheConversationAtOnceAndCallsNobody) {
  TKSInterface tks;
  connectOverFiles(tks);
  log_.clear();
  tks.stop(finish("stopped"), error("stop failed"));
  EXPECT_TRUE(log_.has(2, kCleanup));
  EXPECT_EQ(tks.appManager->TKSAppStatus, TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_FALSE(tks.messageHandler->messageHost->isOpened);
  EXPECT_TRUE(std::filesystem::is_empty(world_.home.temporary() + "/Tarvo-Systems.Ember"));
  settle();
  EXPECT_THAT(calls_, IsEmpty());
}

TEST_F(FacadeStopOfAFileHost, WhileStartingNamesTheStatusThatItFound) {
  TKSInterface tks;
  tks.setTKSAppPath(world_.bundle());
  tks.start(finish("started"), error("start failed"));
  tks.stop(finish("stopped"), error("stop failed"));
  EXPECT_THAT(called(), ElementsAre("stop failed: Unexpected app status: 2"));
  EXPECT_TRUE(log_.has(4, "Stop failed: Unexpected app status: 2"));
  ASSERT_TRUE(drainUntil([&] { return tks.appManager->launchedTKSPid > 0; }));
}

TEST_F(FacadeStopOfAFileHost, CleanupAsksForTheReleaseIdentifierOnly) {
  for (const auto& [identifier, line] : std::initializer_list<std::pair<std::string, std::string>>{
           {"Tarvo-Systems.Ember", kCleanup},
           {"Tarvo-Systems.Ember.Debug", kNoCleanup},
           {"com.example.Browser", kNoCleanup},
       }) {
    world_.bundles.identifier = identifier;
    log_.clear();
    tks_.cleanupConnectStatus4FileIPC();
    EXPECT_EQ(log_.lines().at(0), (LogLine{2, line})) << identifier;
  }
}

TEST_F(FacadeStopOfAFileHost, DebugHostStopsLikeAHostWithPipes) {
  world_.bundles.identifier = "Tarvo-Systems.Ember.Debug";
  TKSInterface tks;
  connectOverFiles(tks);
  tks.stop(finish("stopped"), error("stop failed"));
  EXPECT_EQ(tks.appManager->TKSAppStatus, TKSI_APP_STATUS_CONNECTED);
  tks.messageHandler->messageHost->onMessage(
      tks::test::frame(R"({"message_type":"disconnect_ack","message":"disconnect_ack"})"));
  EXPECT_THAT(called(), ElementsAre("stopped"));
  EXPECT_TRUE(std::filesystem::is_empty(world_.home.temporary() + "/Tarvo-Systems.Ember.Debug"));
}

TEST_F(FacadeStop, StopWhileStartingTellsEachStepInOrder) {
  tks_.appManager->TKSAppStatus = TKSI_APP_STATUS_STARTING;
  tks_.stop(finish(), [&](const TKSError& error) {
    EXPECT_EQ(error, (TKSError{"TKSIDefaultDomain", 0, "Unexpected app status: 2"}));
    EXPECT_TRUE(log_.has(4, "Stop failed: Unexpected app status: 2"));
    calls_.push_back("told");
  });
  EXPECT_THAT(called(), ElementsAre("told"));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "-[TKSInterface stop:errorBlock:],  connected pid: 0"},
                                        LogLine{2, "Ipc by pipe. Don't need cleanup connect status of interface."},
                                        LogLine{2, "-[TKSIMessageHandler stopMessageHost]"},
                                        LogLine{4, "Stop failed: Unexpected app status: 2"}));
}

TEST_F(FacadeStop, StopOfARunningLaunchTellsItsCallbacksBeforeItSaysGoodbye) {
  launch();
  tks_.messageHandler->launchErrorBlock = [&](const TKSError& error) {
    EXPECT_EQ(error, (TKSError{"TKSIDefaultDomain", 1, "Previous launching job running, will stop it firstly."}));
    EXPECT_THAT(world_.heard(), IsEmpty());
    calls_.push_back("told");
  };
  tks_.stop(finish(), error());
  EXPECT_THAT(called(), ElementsAre("told"));
  EXPECT_THAT(world_.heard(), ElementsAre("disconnect"));
}

}  // namespace

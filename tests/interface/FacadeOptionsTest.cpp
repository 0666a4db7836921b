#include <chrono>
#include <filesystem>
#include <fstream>

#include "tests/interface/FacadeTest.h"
#include "tests/support/PlayedTimers.h"
#include "tests/support/ScopedOptions.h"

// Options, as callers of the facade see them. Time passes when a test says so.

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tks::test::FacadeTest;
using tks::test::LogLine;
using tks::test::PlayedProcesses;
using tks::test::PlayedTimers;
using tks::test::ScopedOptions;

const std::string kTerm = "term " + std::to_string(PlayedProcesses::kFirstPid);
const std::string kKill = "kill " + std::to_string(PlayedProcesses::kFirstPid);

class FacadeOptions : public FacadeTest {
 protected:
  /// What a limit says to a callback.
  static std::string silent(const std::string& name, const std::string& type, int limit) {
    return name + ": TKS did not answer \"" + type + "\" within " + std::to_string(limit) + " ms.";
  }

  PlayedTimers time_;
  ScopedOptions options_;
};

TEST_F(FacadeOptions, AreLoggedByTheFirstStartAndStayFromThenOn) {
  options_.set({.helloLimit = 30000});
  startUntilGreeted();
  const LogLine line{2, "Option helloLimit: 30000 ms. A greeting that is not answered in time has failed."};
  EXPECT_EQ(log_.lines().front(), line);
  EXPECT_FALSE(TKSOptions::setOptions({}));
  log_.clear();
  tks_.stop(nullptr, nullptr);
  settle();
  tks_.start(nullptr, nullptr);
  settle();
  EXPECT_THAT(log_.lines(), Not(Contains(line)));
}

TEST_F(FacadeOptions, SilentLauncherFailsTheStartWithStatusOne) {
  options_.set({.helloLimit = 30000});
  startUntilGreeted();
  time_.pass(30s);
  EXPECT_THAT(called(), ElementsAre(silent("start failed", "hello", 30000)));
  EXPECT_EQ(lastError_.reason, TKSErrorReason::notAnswered);
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_THAT(world_.processes.ended(), IsEmpty());
  // And the next start works.
  startUntilGreeted();
  world_.says("hello_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  time_.pass(24h);
  EXPECT_EQ(status(), TKSI_APP_STATUS_CONNECTED);
}

TEST_F(FacadeOptions, EveryCallerOfAGreetingHearsOfTheLimitOnce) {
  options_.set({.helloLimit = 30000});
  connect();
  tks_.start(finish("one"), error("one failed"));
  tks_.start(finish("two"), error("two failed"));
  waitUntilHeard();
  time_.pass(30s);
  EXPECT_THAT(called(), testing::UnorderedElementsAre(silent("one failed", "hello", 30000),
                                                      silent("two failed", "hello", 30000)));
}

TEST_F(FacadeOptions, EveryCallerHearsWhatALauncherRefusesWithTheNamesMasked) {
  options_.set({.maskReceived = true});
  connect();
  tks_.start(finish("one"), error("one failed"));
  tks_.start(finish("two"), error("two failed"));
  tks_.stop(finish("three"), error("three failed"));
  tks_.stop(finish("four"), error("four failed"));
  waitUntilHeard();
  world_.says("error", "\"jane.roe@a.example is not invited\"");
  settle();
  std::vector<std::string> expected;
  for (const char* name : {"one", "two", "three", "four"}) {
    expected.push_back(std::string(name) + " failed: jane.***@a.example is not invited");
  }
  EXPECT_THAT(called(), testing::UnorderedElementsAreArray(expected));
}

TEST_F(FacadeOptions, LaunchThatStartsASilentLauncherFailsOnce) {
  options_.set({.helloLimit = 30000});
  tks_.launchMeetingWithParam(TKSDictionary{{"gpcurlroot", "https://meet.example"}}, finish("launched"),
                              error("launch failed"));
  waitUntilHeard();
  time_.pass(30s);
  settle();
  EXPECT_THAT(called(), ElementsAre(silent("launch failed", "hello", 30000)));
}

TEST_F(FacadeOptions, LaunchThatIsNotAnsweredFailsWithStatusOne) {
  options_.set({.launchLimit = 1000});
  launch();
  time_.pass(1s);
  EXPECT_THAT(called(), ElementsAre(silent("launch failed", "launch_meeting", 1000)));
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
}

TEST_F(FacadeOptions, StopThatIsNotAnsweredFailsWithStatusOne) {
  options_.set({.disconnectLimit = 1000});
  connect();
  tks_.stop(finish("stopped"), error("stop failed"));
  waitUntilHeard();
  time_.pass(1s);
  EXPECT_THAT(called(), ElementsAre(silent("stop failed", "disconnect", 1000)));
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
}

TEST_F(FacadeOptions, LauncherThatNeverAnsweredIsAskedToEndAndKilledTwoSecondsLater) {
  options_.set({.helloLimit = 1000, .endSilentLauncher = true});
  startUntilGreeted();
  time_.pass(1s);
  EXPECT_THAT(world_.processes.ended(), ElementsAre(kTerm));
  time_.pass(1999ms);
  EXPECT_THAT(world_.processes.ended(), ElementsAre(kTerm));
  time_.pass(1ms);
  EXPECT_THAT(world_.processes.ended(), ElementsAre(kTerm, kKill));
  time_.pass(24h);
  EXPECT_THAT(world_.processes.ended(), ElementsAre(kTerm, kKill));
}

TEST_F(FacadeOptions, LauncherThatEndsWhenItIsAskedIsNotKilled) {
  options_.set({.helloLimit = 1000, .endSilentLauncher = true});
  startUntilGreeted();
  time_.pass(1s);
  world_.processes.end(0, {tks::platform::ChildEnd::How::killed, 15});
  time_.pass(24h);
  EXPECT_THAT(world_.processes.ended(), ElementsAre(kTerm));
}

TEST_F(FacadeOptions, LauncherOfAGreetingThatWasStoppedIsEnded) {
  options_.set({.endSilentLauncher = true});
  startUntilGreeted();
  tks_.stop(finish("stopped"), error("stop failed"));
  settle();
  EXPECT_THAT(world_.processes.ended(), ElementsAre(kTerm));
}

TEST_F(FacadeOptions, LauncherThatIsNeverListedIsEnded) {
  options_.set({.endSilentLauncher = true});
  world_.processes.hide();
  tks_.start(finish("started"), error("start failed"));
  ASSERT_TRUE(tks::test::drainUntil([&] { return !calls_.empty(); }));
  settle();
  EXPECT_THAT(world_.processes.ended(), ElementsAre(kTerm));
}

TEST_F(FacadeOptions, LauncherOfADestroyedFacadeIsEnded) {
  options_.set({.endSilentLauncher = true});
  {
    TKSInterface another;
    another.setTKSAppPath(world_.bundle());
    another.start(nullptr, nullptr);
    EXPECT_THAT(waitUntilHeard(), ElementsAre("hello"));
  }
  EXPECT_THAT(world_.processes.ended(), ElementsAre(kTerm));
  {
    TKSInterface another;
    another.setTKSAppPath(world_.bundle());
    another.start(nullptr, nullptr);  // gone before the launcher is there
  }
  ASSERT_TRUE(tks::test::drainUntil([&] { return world_.processes.ended().size() > 1; }));
  EXPECT_EQ(world_.processes.ended().back(), "term " + std::to_string(PlayedProcesses::kFirstPid + 1));
}

TEST_F(FacadeOptions, LauncherThatAnsweredIsLeftAlone) {
  options_.set({.launchLimit = 1000, .endSilentLauncher = true});
  launch();
  time_.pass(24h);
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_THAT(world_.processes.ended(), IsEmpty());
}

TEST_F(FacadeOptions, PipesAndEnvironmentAreAsTheOptionsSay) {
  startUntilGreeted();
  EXPECT_FALSE(world_.processes.request(0).keepPipesPrivate);
  EXPECT_FALSE(world_.processes.request(0).environment);
  tks_.stop(nullptr, nullptr);
  settle();
  const ScopedOptions on({.privatePipes = true, .launcherEnvironment = {"HOME"}});
  startUntilGreeted();
  EXPECT_TRUE(world_.processes.request(1).joinStandardHandles);
  EXPECT_TRUE(world_.processes.request(1).keepPipesPrivate);
  EXPECT_THAT(world_.processes.request(1).environment, testing::Optional(ElementsAre("HOME")));
}

/// Over files, where anybody of this user can write.
class FilePeer : public FacadeOptions {
 protected:
  FilePeer() {
    world_.bundles.identifier = TKSIBundleIDHuddle;
    host_ = std::make_unique<TKSInterface>();
    host_->setTKSAppPath(world_.bundle());
  }

  bool isConnected() {
    return tks::test::drainUntil([&] { return host_->appManager->TKSAppStatus == TKSI_APP_STATUS_CONNECTED; });
  }

  /// Says something in the launcher's file of the conversation.
  void writeToTheFile(const std::string& type) {
    std::ofstream(host_->messageHandler->messageHost->tempIPCFileFullPathFromTKS2Interface,
                  std::ios::app | std::ios::binary)
        << tks::test::frame("{\"message_type\":\"" + type + "\",\"message\":\"" + type + "\"}");
  }
  void startOverFiles() {
    host_->start(finish("started"), error("start failed"));
    ASSERT_TRUE(tks::test::drainUntil([&] { return host_->appManager->launchedTKSPid != 0; }));
    settle();
  }

  std::unique_ptr<TKSInterface> host_;
};

TEST_F(FilePeer, LauncherThatHasTheFileOpenIsBelieved) {
  options_.set({.checkFilePeer = true});
  startOverFiles();
  writeToTheFile("hello_ack");
  EXPECT_TRUE(isConnected());
}

TEST_F(FilePeer, StrangerAtTheFileIsRefused) {
  options_.set({.checkFilePeer = true});
  world_.processes.hasFileOpen = false;
  startOverFiles();
  writeToTheFile("hello_ack");
  ASSERT_TRUE(tks::test::drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("start failed: Message file is not open in the launcher that was started."));
  EXPECT_EQ(lastError_.reason, TKSErrorReason::notTrusted);
  EXPECT_EQ(host_->appManager->TKSAppStatus, TKSI_APP_STATUS_UNCONNECTED);
}

TEST_F(FilePeer, NobodyIsAskedWithoutTheOption) {
  world_.processes.hasFileOpen = false;
  startOverFiles();
  writeToTheFile("hello_ack");
  EXPECT_TRUE(isConnected());
}

}  // namespace

#include <sys/stat.h>

#include "tests/interface/FacadeTest.h"
#include "tests/support/ForwardingFiles.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using tks::test::drainUntil;
using tks::test::FacadeTest;
using tks::test::LogLine;
using tks::test::PlayedProcesses;

/// Files whose locks other processes have.
class HeldFiles final : public tks::test::ForwardingFiles {
 public:
  std::chrono::milliseconds longestOnMainThread{0};
  std::unique_ptr<tks::platform::FileLock> lock(std::string_view, std::chrono::milliseconds patience,
                                                TKSError* error) override {
    if (tks::platform::mainLoop().isMainThread()) longestOnMainThread = std::max(longestOnMainThread, patience);
    if (error != nullptr) *error = {"POSIX", 110, "held", TKSErrorReason::busy};
    return nullptr;
  }
};

/// Files that make no folder and no file.
class UnmakableFolders final : public tks::test::ForwardingFiles {
 public:
  bool createDirectory(std::string_view, std::uint32_t, TKSError* error) override { return fail(error); }
  bool createFile(std::string_view, std::uint32_t, TKSError* error) override { return fail(error); }

 private:
  static bool fail(TKSError* error) {
    if (error != nullptr) *error = {"POSIX", 13, "Permission denied", TKSErrorReason::noPermission};
    return false;
  }
};

class FacadeStart : public FacadeTest {
 protected:
  std::vector<std::string> arguments(std::size_t launch = 0) { return world_.processes.request(launch).arguments; }
  std::string folder(const std::string& identifier) {
    return world_.home.temporary() + "/" + identifier + "/ipcFile_0315142233045";
  }
};

TEST_F(FacadeStart, FromTheBeginningTellsEachStep) {
  const std::string refresh = "Param incorrect when check default TKS version: backupVersion: , zipPath: (null)";
  startUntilGreeted();
  std::vector<LogLine> lines = log_.lines();
  ASSERT_GT(lines.size(), 7u);
  lines.resize(7);
  EXPECT_THAT(lines,
              ElementsAre(LogLine{2, "-[TKSInterface start:errorBlock:],  connected pid: 0"},
                          LogLine{2, "TKSInterface SDK version: 7.8.9"},
                          LogLine{2, "TKS app status: UNCONNECTED. Try to launch and connect TKS."},
                          LogLine{2, "Switch TKS app status to: STARTING"},
                          LogLine{2, "-[TKSIAppManager updateDefaultTKS:backupZipPath:]"}, LogLine{8, refresh},
                          LogLine{4, "Check default TKS version failed. Get on to process with default version."}));
  EXPECT_TRUE(log_.has(2, "TKS launched, pid: 4711. Start message host, and send hello message to test"));
  EXPECT_EQ(status(), TKSI_APP_STATUS_STARTING);
  EXPECT_EQ(tks_.appManager->launchedTKSPid, PlayedProcesses::kFirstPid);
  EXPECT_EQ(tks_.connectedTKSAppPid(), 0);
  EXPECT_THAT(calls_, IsEmpty());
}

TEST_F(FacadeStart, AnswerToTheGreetingConnects) {
  connect();
  EXPECT_TRUE(tks_.isTKSAppSuspending());
  EXPECT_FALSE(tks_.isTKSAppProcessing());
  EXPECT_EQ(tks_.connectedTKSAppPid(), PlayedProcesses::kFirstPid);
  EXPECT_EQ(tks_.appManager->launchedTKSPid, 0);
  EXPECT_TRUE(log_.has(2, "Switch TKS app status to: CONNECTED"));
  EXPECT_TRUE(log_.has(2, "Connected to TKS with pid: 4711"));
}

TEST_F(FacadeStart, SuccessfulRefreshIsNotComplainedAbout) {
  tks::test::writeFile(world_.folder / "backup.zip", "");
  tks::test::writeFile(world_.bundle() + "/Contents/Info.plist",
                       "<plist><dict><key>CFBundleVersion</key><string>5.0</string></dict></plist>");
  tks_.setBackupTKSZipPath(world_.folder / "backup.zip", "5.0");
  startUntilGreeted();
  EXPECT_TRUE(log_.has(2, "Backup version not newer. Use default version directly."));
  EXPECT_THAT(log_.texts(4),
              Not(Contains("Check default TKS version failed. Get on to process with default version.")));
}

TEST_F(FacadeStart, RefreshThatAnotherHostKeepsFromGoesOnWithTheInstalledLauncher) {
  tks::test::writeFile(world_.folder / "backup.zip", "");
  tks_.setBackupTKSZipPath(world_.folder / "backup.zip", "5.0");
  HeldFiles files;
  tks_.start(finish("started"), error("start failed"));
  EXPECT_THAT(log_.texts(4), Contains(testing::StartsWith("Waiting for another process at: ")));
  EXPECT_TRUE(log_.has(4, "Check default TKS version failed. Get on to process with default version."));
  EXPECT_EQ(files.longestOnMainThread, std::chrono::milliseconds(2000));
  EXPECT_TRUE(std::filesystem::exists(world_.executable()));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
}

TEST_F(FacadeStart, LauncherThatAnotherHostReplacesIsNotLookedAtAfterAFailedLaunch) {
  world_.preferences.values = {};
  HeldFiles files;
  tks_.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_EQ(world_.tools.runs(), 0u);
  EXPECT_TRUE(std::filesystem::exists(world_.executable()));
  EXPECT_EQ(files.longestOnMainThread, std::chrono::milliseconds(2000));
}

TEST_F(FacadeStart, WithoutAFolderForTheMessageFilesAFileHostIsTold) {
  world_.bundles.identifier = "Tarvo-Systems.Ember";
  UnmakableFolders files;
  TKSInterface tks;
  tks.start(finish(), error());
  ASSERT_EQ(calls_.size(), 1u);
  EXPECT_THAT(calls_.front(),
              testing::StartsWith("error: No folder for the message files, can not communicate by file."));
  EXPECT_THAT(log_.texts(8), Contains(testing::StartsWith("Failed to create directory:")));
  EXPECT_THAT(log_.texts(8), Contains("Create ipcFile_TKS2Interface failed!"));
  EXPECT_EQ(tks.appManager->TKSAppStatus, TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_FALSE(tks.messageHandler->messageHost->isOpened);
  settle();
  EXPECT_EQ(world_.processes.count(), 0u);
}

TEST_F(FacadeStart, OrdinaryHostTalksOverPipes) {
  startUntilGreeted();
  EXPECT_EQ(world_.processes.request(0).executable, world_.executable());
  EXPECT_TRUE(world_.processes.request(0).joinStandardHandles);
  EXPECT_THAT(arguments(), ElementsAre("-LaunchMethod", "SDK", "-Communicate", "Pipe"));
  EXPECT_EQ(tks_.bundleID, "");
}

TEST_F(FacadeStart, HostWithAnotherIdentifierTalksOverPipesToo) {
  world_.bundles.identifier = "com.example.Browser";
  startUntilGreeted();
  EXPECT_THAT(arguments(), ElementsAre("-LaunchMethod", "SDK", "-Communicate", "Pipe"));
  EXPECT_EQ(tks_.bundleID, "com.example.Browser");
}

TEST_F(FacadeStart, TeamMessagingHostsTalkOverFilesInAFolderOfTheConversation) {
  for (const std::string identifier : {"Tarvo-Systems.Ember", "Tarvo-Systems.Ember.Debug"}) {
    SCOPED_TRACE(identifier);
    world_.bundles.identifier = identifier;
    TKSInterface tks;
    tks.setTKSAppPath(world_.bundle());
    const std::size_t launches = world_.processes.count();
    tks.start(finish(), error());
    // Before the launcher is started: it only looks at the files.
    EXPECT_TRUE(std::filesystem::exists(folder(identifier) + "/ipcFile_TKS2Interface"));
    EXPECT_TRUE(std::filesystem::exists(folder(identifier) + "/ipcFile_Interface2TKS"));
    ASSERT_TRUE(drainUntil([&] { return world_.processes.count() > launches && tks.appManager->launchedTKSPid > 0; }));
    EXPECT_THAT(arguments(launches),
                ElementsAre("-LaunchMethod", "SDK", "-Communicate", "File", "-TempIPCFilePath", folder(identifier)));
    EXPECT_FALSE(world_.processes.request(launches).joinStandardHandles);
    EXPECT_EQ(tks.bundleID, identifier);
  }
}

TEST_F(FacadeStart, WithoutATrustworthyTemporaryFolderAFileHostIsTold) {
  world_.bundles.identifier = "Tarvo-Systems.Ember";
  world_.home.setTemporary("");
  TKSInterface tks;
  tks.start(finish(), error());
  EXPECT_THAT(called(), ElementsAre("error: No temporary folder that can be trusted, can not communicate by file."));
  EXPECT_TRUE(log_.has(8, "Start failed: No temporary folder that can be trusted, can not communicate by file."));
  EXPECT_EQ(tks.appManager->TKSAppStatus, TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_EQ(world_.processes.count(), 0u);
}

TEST_F(FacadeStart, HostThatUsesFilesAndCannotMakeThemFailsToStart) {
  world_.bundles.identifier = "Tarvo-Systems.Ember";
  tks::test::writeFile(world_.home.temporary() + "/Tarvo-Systems.Ember", "a file in the way");
  TKSInterface tks;
  tks.setTKSAppPath(world_.bundle());
  log_.clear();
  tks.start(finish(), error());
  EXPECT_THAT(called(), ElementsAre(testing::MatchesRegex(
                            "error: No folder for the message files, can not communicate by file. Path: .*")));
  EXPECT_THAT(log_.texts(8), ElementsAre(testing::StartsWith("Param incorrect when check default TKS version"),
                                         testing::StartsWith("Failed to create directory:"),
                                         "Create ipcFile_TKS2Interface failed!", "Create ipcFile_Interface2TKS failed!",
                                         testing::StartsWith("Removing ipcFile folder has error:"),
                                         testing::StartsWith("Start failed: No folder for the message files, ")));
  EXPECT_EQ(tks.appManager->TKSAppStatus, TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_FALSE(tks.messageHandler->messageHost->isOpened);
  EXPECT_EQ(world_.processes.count(), 0u);
}

TEST_F(FacadeStart, FileHostStartsAgainAfterAFailedLaunchInAFolderOfItsOwn) {
  world_.bundles.identifier = "Tarvo-Systems.Ember";
  TKSInterface tks;
  tks.setTKSAppPath("/nowhere/A.app");
  tks.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return tks.appManager->TKSAppStatus == 1; }));
  tks.setTKSAppPath(world_.bundle());
  tks.start(finish(), error());
  EXPECT_TRUE(std::filesystem::exists(folder("Tarvo-Systems.Ember") + "/ipcFile_TKS2Interface"));
  ASSERT_TRUE(drainUntil([&] { return tks.appManager->launchedTKSPid > 0; }));
}

TEST_F(FacadeStart, HostIsToldTheProcessIdentifierOfEachLauncher) {
  std::vector<std::int32_t> pids;
  tks_.launchedTKSPidBlock([&](std::int32_t pid) { pids.push_back(pid); });
  connect();
  EXPECT_THAT(pids, ElementsAre(PlayedProcesses::kFirstPid));
}

TEST_F(FacadeStart, PidCallbackMayReplaceItself) {
  std::vector<std::string> told;
  tks_.launchedTKSPidBlock([&](std::int32_t) {
    tks_.launchedTKSPidBlock(nullptr);
    told.push_back("once");
  });
  connect();
  EXPECT_THAT(told, ElementsAre("once"));
}

TEST_F(FacadeStart, SecondStartIsRefusedWhileTheFirstIsUnderWay) {
  tks_.start(finish("first"), error("first failed"));
  tks_.start(finish("second"), error("second failed"));
  EXPECT_THAT(called(), ElementsAre("second failed: Unexpected app status: 2"));
  EXPECT_EQ(lastError_.domain, "TKSIDefaultDomain");
  EXPECT_EQ(lastError_.code, 0);
  EXPECT_TRUE(log_.has(4, "Start failed: Unexpected app status: 2"));
  EXPECT_EQ(status(), TKSI_APP_STATUS_STARTING);
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  EXPECT_THAT(called(), ElementsAre("first"));
}

TEST_F(FacadeStart, IsRefusedWhileALaunchIsUnderWay) {
  launch();
  tks_.start(finish(), error());
  EXPECT_THAT(called(), ElementsAre("error: Unexpected app status: 4"));
  EXPECT_TRUE(log_.has(4, "Start failed: Unexpected app status: 4"));
  EXPECT_EQ(status(), TKSI_APP_STATUS_LAUNCHING);
}

TEST_F(FacadeStart, RefusedStartInstallsTheStatusCallbacksAllTheSame) {
  tks_.appManager->TKSAppStatus = TKSI_APP_STATUS_STARTING;
  tks_.start(finish(), error());
  ASSERT_TRUE(tks_.messageHandler->notifyStatusBlock && tks_.messageHandler->queryStatusBlock);
  EXPECT_EQ(tks_.messageHandler->queryStatusBlock(), TKSI_APP_STATUS_STARTING);
  tks_.messageHandler->notifyStatusBlock(TKSI_APP_STATUS_LAUNCHING);
  EXPECT_EQ(status(), TKSI_APP_STATUS_LAUNCHING);
}

TEST_F(FacadeStart, OfAConnectedLauncherGreetsItAgain) {
  connect();
  log_.clear();
  tks_.start(finish("tested"), error());
  EXPECT_EQ(log_.lines().at(0), (LogLine{2, "-[TKSInterface start:errorBlock:],  connected pid: 4711"}));
  EXPECT_TRUE(
      log_.has(4, "TKS app status: CONNECTED. Already started. Send hello message to test and get on processing."));
  EXPECT_THAT(world_.heard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("tested"));
  EXPECT_EQ(world_.processes.count(), 1u);
  // The launcher's identifier has moved on already.
  EXPECT_EQ(tks_.connectedTKSAppPid(), 0);
}

TEST_F(FacadeStart, TwoGreetingsThatWaitForOneAnswerAreBothTold) {
  connect();
  tks_.start(finish("first"), error());
  tks_.start(finish("second"), error());
  EXPECT_THAT(world_.heard(), ElementsAre("hello", "hello"));
  world_.says("hello_ack");
  world_.says("hello_ack");
  settle();
  EXPECT_THAT(called(), ElementsAre("first", "second"));
}

TEST_F(FacadeStart, FailedLaunchIsReportedMaskedInTheLineAndPlainInTheError) {
  tks_.setTKSAppPath("/Users/jane/A.app");
  log_.clear();
  tks_.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  const std::string path = "/Users/jane/A.app/Contents/MacOS/A";
  const std::string text = "Launch app failed. Path: " + path + ". Error: Component binary file not exists: " + path;
  EXPECT_THAT(called(), ElementsAre("error: " + text));
  EXPECT_EQ(lastError_.domain, "TKSIDefaultDomain");
  EXPECT_EQ(lastError_.code, 0);
  const std::string masked = TKSILog::removeSensitiveInformation(text);
  EXPECT_NE(masked, text);
  EXPECT_TRUE(log_.has(8, masked));
  EXPECT_TRUE(log_.has(2, "Switch TKS app status to: UNCONNECTED"));
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_FALSE(tks_.messageHandler->messageHost->isOpened);
}

TEST_F(FacadeStart, FailedLaunchWithoutErrorCallbackOnlyGoesBackToTheBeginning) {
  tks_.setTKSAppPath("/nowhere/A.app");
  tks_.start(finish(), nullptr);
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_EQ(log_.lines().back(), (LogLine{2, "Switch TKS app status to: UNCONNECTED"}));
}

TEST_F(FacadeStart, BrokenLauncherIsRemovedBeforeTheHostIsTold) {
  world_.preferences.values = {};
  world_.makeALauncherOfIt();
  bool wasThere = true;
  tks_.start(finish(), [&](const TKSError& error) {
    wasThere = std::filesystem::exists(world_.bundle());
    calls_.push_back(error.localizedDescription);
  });
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre(testing::StartsWith("Launch app failed. Path: " + world_.executable() +
                                                        ". Error: Security check failed: ")));
  EXPECT_TRUE(log_.has(8, "App broken, about to clean up the broken tks app."));
  EXPECT_FALSE(wasThere);
  EXPECT_EQ(world_.processes.count(), 0u);
}

TEST_F(FacadeStart, NoOtherHostReplacesALauncherThatIsLookedAt) {
  world_.preferences.values = {};
  bool alone = false;
  world_.onAssessment = [&] {
    alone = !tks::platform::files().lock(world_.folder.path(), std::chrono::milliseconds(0), nullptr);
  };
  tks_.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_TRUE(alone);
  EXPECT_TRUE(tks::platform::files().lock(world_.folder.path(), std::chrono::milliseconds(0), nullptr));
}

TEST_F(FacadeStart, HealthyLauncherStaysAfterAFailedLaunch) {
  world_.preferences.values = {};
  world_.assessment = world_.bundle() + ": accepted\n";
  tks_.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(log_.texts(8), Not(Contains("App broken, about to clean up the broken tks app.")));
  EXPECT_TRUE(std::filesystem::exists(world_.executable()));
}

TEST_F(FacadeStart, LauncherWithoutAVerdictStaysAfterAFailedLaunch) {
  world_.preferences.values = {};
  world_.makeALauncherOfIt();
  world_.withoutAssessment = true;
  tks_.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_TRUE(std::filesystem::exists(world_.executable()));
  EXPECT_THAT(log_.texts(8), Not(Contains("App broken, about to clean up the broken tks app.")));
  EXPECT_THAT(log_.texts(8), Contains(testing::StartsWith("No verdict of spctl, ")));
}

TEST_F(FacadeStart, NobodyLooksForABrokenLauncherWhenNobodyIsTold) {
  world_.preferences.values = {};
  tks_.start(finish(), nullptr);
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  settle();
  EXPECT_EQ(world_.tools.runs(), 0u);
  EXPECT_TRUE(std::filesystem::exists(world_.executable()));
}

TEST_F(FacadeStart, MissingLauncherCountsAsBroken) {
  tks_.setTKSAppPath("/nowhere/A.app");
  tks_.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_TRUE(log_.has(8, "App broken, about to clean up the broken tks app."));
}

TEST_F(FacadeStart, ProcessThatCannotBeStartedIsAFailedLaunch) {
  world_.processes.refuseToStart();
  tks_.start(finish(), error());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("error: Launch app failed. Path: " + world_.executable() +
                                    ". Error: Getting pid failed, probably launch app by NSTask failed."));
  world_.processes.refuseToStart(false);
  connect();
}

TEST_F(FacadeStart, EndOfThePipeBeforeTheAnswerIsReportedOnce) {
  startUntilGreeted();
  world_.channels.input->end();
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  settle();
  EXPECT_THAT(
      called(),
      ElementsAre("start failed: Message data size ( 0 ) less than 'sizeOfSize', no pending data. (Empty message "
                  "probably means parent or child process already exited, while current message host is still "
                  "open.)"));
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
}

TEST_F(FacadeStart, EndOfAProcessWhoseChannelStaysOpenIsNoticed) {
  connect();
  world_.processes.end(0, {tks::platform::ChildEnd::How::killed, 9});
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_TRUE(log_.has(8, "Handle fatal error: Launcher process ended while message host is still open. (signal: 9)"));
  EXPECT_FALSE(tks_.messageHandler->messageHost->isOpened);
}

TEST_F(FacadeStart, LastWordsOfALauncherComeBeforeItsEnd) {
  launch();
  world_.processes.end(0, {tks::platform::ChildEnd::How::exited, 0});
  world_.says("launch_meeting_ack", "{}");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_EQ(calls_.front(), "launched");
}

TEST_F(FacadeStart, EndOfAnEarlierLauncherDoesNotTouchTheConversationWithTheNext) {
  connect();
  tks_.stop(finish("stopped"), error());
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  world_.heard();
  called();
  connect();
  world_.processes.end(0, {tks::platform::ChildEnd::How::exited, 0});
  tks::test::drainFor(std::chrono::milliseconds(400));
  EXPECT_EQ(status(), TKSI_APP_STATUS_CONNECTED);
  EXPECT_THAT(calls_, IsEmpty());
}

TEST_F(FacadeStart, UnaskedGoodbyeBeforeTheGreetingIsAnsweredIsAnError) {
  startUntilGreeted();
  world_.says("disconnect_ack");
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_THAT(called(), ElementsAre("start failed: TKS disconnected before it answered."));
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
  connect();
}

TEST_F(FacadeStart, PathOfABundleGivesTheExecutableThatItDeclares) {
  world_.bundles.declared["/a/B.app"] = {.path = "/a/B.app",
                                         .executablePath = "/a/B.app/Contents/MacOS/declared",
                                         .builtInPlugInsPath = "",
                                         .infoDictionary = {}};
  tks_.setTKSAppPath("/a/B.app");
  EXPECT_EQ(tks_.TKSAppPath(), "/a/B.app");
  EXPECT_EQ(tks_.appManager->TKSExePath, "/a/B.app/Contents/MacOS/declared");
}

TEST_F(FacadeStart, BundleThatDeclaresNoExecutableHasOneOfItsOwnName) {
  for (const auto& [path, executable] : std::initializer_list<std::pair<std::string, std::string>>{
           {"/a/B C.app", "/a/B C.app/Contents/MacOS/B C"},
           {"/a/B.app/", "/a/B.app/Contents/MacOS/B"},
           {"/a/B.2.app", "/a/B.2.app/Contents/MacOS/B.2"},
           {"/a/plain", "/a/plain/Contents/MacOS/plain"},
       }) {
    tks_.setTKSAppPath(path);
    EXPECT_EQ(tks_.appManager->TKSExePath, executable);
  }
}

TEST_F(FacadeStart, EmptyPathLeavesTheExecutableAsItWas) {
  tks_.setTKSAppPath("");
  EXPECT_EQ(tks_.TKSAppPath(), "");
  EXPECT_EQ(tks_.appManager->TKSExePath, world_.executable());
}

TEST_F(FacadeStart, WhatTheHostOffersIsKept) {
  tks_.setBackupTKSAppPath("/b/App.app");
  tks_.setBackupTKSZipPath("/b/App.zip", " 4.1 ");
  EXPECT_EQ(tks_.appManager->backupTKSAppPath, "/b/App.app");
  EXPECT_EQ(tks_.appManager->backupTKSZipPath, "/b/App.zip");
  EXPECT_EQ(tks_.appManager->backupTKSVersion, " 4.1 ");
  tks_.setBackupTKSZipPath(std::nullopt, "");
  EXPECT_EQ(tks_.appManager->backupTKSZipPath, std::nullopt);
}

TEST_F(FacadeStart, LogCallbackGoesToTheSharedLog) {
  std::vector<std::string> lines;
  tks_.setLogBlock([&](std::int32_t, const std::string& line) { lines.push_back(line); });
  TKSILog::logWithLevel(TKSILogLevelInfo, "one");
  tks_.setLogBlock(nullptr);
  TKSILog::logWithLevel(TKSILogLevelInfo, "two");
  EXPECT_THAT(lines, ElementsAre("one"));
}

TEST(FacadeInstance, IsSharedByTheWholeProcess) {
  EXPECT_EQ(&TKSInterface::sharedInstance(), &TKSInterface::sharedInstance());
}

TEST_F(FacadeStart, FacadeMayBeDestroyedWhileItsLauncherIsBeingStarted) {
  {
    TKSInterface tks;
    tks.setTKSAppPath(world_.bundle());
    tks.start(finish(), error());
  }
  ASSERT_TRUE(log_.waitFor(2, "Launch exe result 1: [pid: 4711, path: " + world_.executable() + ", retryCount: 1]"));
  settle();
  EXPECT_THAT(calls_, IsEmpty());
}

}  // namespace

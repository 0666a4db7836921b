#include <atomic>
#include <future>
#include <thread>

#include "interface/LaunchArguments.h"
#include "interface/LaunchExecutable.h"
#include "tests/interface/LaunchingTest.h"
#include "tests/support/FakeChildProcesses.h"
#include "tests/support/HostLoop.h"

namespace {

using namespace tks::test;
using std::chrono::milliseconds;
using tks::platform::ChildEnd;
using tks::platform::ChildRequest;

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr std::int32_t kPid = tks::test::PlayedChildren::kFirstPid;

class LaunchExecutable : public LaunchingTest {
 protected:
  LaunchExecutable() { applications.looks[kPid] = {application()}; }
  TKSRunningApplication application() const { return {kPid, "id", "Launcher", "/Users/jane/Launcher.app", 9}; }

  std::optional<TKSRunningApplication> launch(const std::vector<std::string>& args) {
    return TKSUtilBase::launchAppWithExePath(executable, args, &error);
  }
  void expectError(const std::string& text) { EXPECT_EQ(error, (TKSError{"com.tarvo.kovra.TKSUtil", 0, text})); }

  PlayedChildren children;
  PlayedApplications applications;
};

TEST_F(LaunchExecutable, StartsTheProcessAndWaitsUntilItIsListed) {
  EXPECT_EQ(launch({"-LaunchMethod", "SDK", "-Communicate", "Pipe"}), application());
  EXPECT_EQ(error, TKSError());
  ASSERT_EQ(children.requests.size(), 1u);
  EXPECT_EQ(children.requests[0].executable, executable);
  EXPECT_THAT(children.requests[0].arguments, ElementsAre("-LaunchMethod", "SDK", "-Communicate", "Pipe"));
  EXPECT_TRUE(children.requests[0].joinStandardHandles);
  EXPECT_THAT(
      lines(),
      ElementsAre(info("Exe path: " + executable),
                  info("Launch with args: (\n    \"-LaunchMethod\",\n    SDK,\n    \"-Communicate\",\n    Pipe\n)"),
                  info("Check app begin."), info("Check app done, result: 1, path: " + bundle),
                  info("Want Pipe communicate: 1"), info("Want File communicate: 0"), info("PID launched: 4711"),
                  info("Launched app: pid: 4711, path: /Users/****/Launcher.app"),
                  info("Launch exe result 1: [pid: 4711, path: " + executable + ", retryCount: 1]")));
  EXPECT_THAT(clock.sleeps(), ElementsAre(milliseconds(100)));
}

TEST_F(LaunchExecutable, NoOtherHostReplacesTheLauncherBetweenItsCheckAndItsStart) {
  const std::string place = bundle.substr(0, bundle.rfind('/'));
  const auto isFree = [&] {
    return tks::platform::files().lock(place, std::chrono::milliseconds(0), nullptr) != nullptr;
  };
  bool freeAtTheStart = true;
  children.onStart = [&](const auto&) { freeAtTheStart = isFree(); };
  bool freeWhileItIsWaitedFor = false;
  applications.onLook = [&] { freeWhileItIsWaitedFor = isFree(); };
  EXPECT_TRUE(launch({}));
  EXPECT_FALSE(freeAtTheStart);
  EXPECT_TRUE(freeWhileItIsWaitedFor);
}

TEST_F(LaunchExecutable, ALauncherThatIsBeingReplacedIsStartedWhenThatIsDone) {
  const std::string place = bundle.substr(0, bundle.rfind('/'));
  std::promise<bool> begun;
  std::atomic<bool> done = false;
  children.onStart = [&](const auto&) { EXPECT_TRUE(done); };
  std::thread host([&] {
    auto installation = tks::platform::files().lock(place, std::chrono::milliseconds(0), nullptr);
    begun.set_value(installation != nullptr);
    EXPECT_TRUE(log.waitFor(4, "Waiting for another process at: " + place));
    done = true;
  });
  EXPECT_TRUE(begun.get_future().get());
  EXPECT_TRUE(launch({}));
  host.join();
}

TEST_F(LaunchExecutable, PollsEveryHundredMillisecondsUntilTheProcessAppears) {
  applications.looks[kPid] = {std::nullopt, std::nullopt, application()};
  EXPECT_EQ(launch({}), application());
  EXPECT_THAT(clock.sleeps(), ElementsAre(milliseconds(100), milliseconds(100), milliseconds(100)));
  EXPECT_THAT(log.texts(2), Contains("Launched app: (null)").Times(2));
  EXPECT_TRUE(log.has(2, "Launch exe result 1: [pid: 4711, path: " + executable + ", retryCount: 3]"));
}

TEST_F(LaunchExecutable, GivesUpAfterThreeHundredAndOnePolls) {
  applications.looks.clear();
  EXPECT_EQ(launch({}), std::nullopt);
  expectError("Getting running app process timeout (more than 30 s). Path: " + executable);
  EXPECT_EQ(clock.sleeps().size(), 301u);
  EXPECT_THAT(clock.sleeps(), Each(milliseconds(100)));
  EXPECT_THAT(log.texts(2), Contains("Launched app: (null)").Times(301));
  EXPECT_EQ(lines().back(), info("Launch exe result 0: [pid: 4711, path: " + executable + ", retryCount: 301]"));
}

TEST_F(LaunchExecutable, AMissingBinaryIsNamedInFull) {
  const std::string missing = "/Users/jane/Launcher.app/Contents/MacOS/Launcher";
  EXPECT_EQ(TKSUtilBase::launchAppWithExePath(missing, {}, &error), std::nullopt);
  expectError("Component binary file not exists: " + missing);
  EXPECT_THAT(children.requests, IsEmpty());
  EXPECT_THAT(lines(), ElementsAre(info("Exe path: /Users/****/Launcher.app/Contents/MacOS/Launcher"),
                                   info("Launch with args: (\n)"),
                                   info("Launch exe result 0: [pid: 0, path: "
                                        "/Users/****/Launcher.app/Contents/MacOS/Launcher, retryCount: 0]")));
}

TEST_F(LaunchExecutable, WhatLeadsOutOfTheBundleBeforeItIsNotCheckedInItsStead) {
  preferences.values = {};
  FakeSignatures unsignedCode;
  unsignedCode.createStatus = -67062;
  const tks::platform::Replaced<tks::platform::Signatures> replaced(unsignedCode);
  for (const char* way : {"/../Other/run", "/Contents/../run", "/Contents/MacOS/.."}) {
    std::filesystem::create_directories(bundle + "/../Other");
    tks::test::writeFile(bundle + "/../Other/run", "x");
    tks::test::writeFile(bundle + "/run", "x");
    EXPECT_EQ(TKSUtilBase::launchAppWithExePath(bundle + way, {}, &error), std::nullopt);
    expectError("Security check failed: No code signature info.");
  }
  EXPECT_THAT(unsignedCode.paths, Each(testing::IsEmpty()));
  EXPECT_THAT(children.requests, IsEmpty());
}

TEST_F(LaunchExecutable, ABundleThatFailsTheTrustCheckIsNotStarted) {
  preferences.values = {};
  FakeSignatures unsignedCode;
  unsignedCode.createStatus = -67062;
  const tks::platform::Replaced<tks::platform::Signatures> replaced(unsignedCode);
  EXPECT_EQ(launch({}), std::nullopt);
  expectError("Security check failed: No code signature info.");
  EXPECT_THAT(children.requests, IsEmpty());
  EXPECT_THAT(unsignedCode.paths, Each(bundle));
  EXPECT_THAT(lines(), ElementsAre(info("Exe path: " + executable), info("Launch with args: (\n)"),
                                   info("Check app begin."), info("Check app done, result: 0, path: " + bundle),
                                   info("Launch exe result 0: [pid: 0, path: " + executable + ", retryCount: 0]")));
}

TEST_F(LaunchExecutable, ABinaryWithoutTheRightToExecuteIsNotStarted) {
  std::filesystem::permissions(executable, std::filesystem::perms(0644));
  EXPECT_EQ(launch({}), std::nullopt);
  expectError("Component binary file not executable: " + executable);
  EXPECT_THAT(children.requests, IsEmpty());
  EXPECT_TRUE(log.has(2, "Check app done, result: 1, path: " + bundle)) << "the check comes first";
}

TEST_F(LaunchExecutable, AFolderIsNoBinary) {
  EXPECT_EQ(TKSUtilBase::launchAppWithExePath(bundle + "/Contents/MacOS", {}, &error), std::nullopt);
  expectError("Component binary file not executable: " + bundle + "/Contents/MacOS");
}

TEST_F(LaunchExecutable, PathsInErrorsAreMasked) {
  const std::string personal = folder / "Users/jane/Launcher.app/Contents/MacOS/Launcher";
  writeFile(personal, "x");
  EXPECT_EQ(TKSUtilBase::launchAppWithExePath(personal, {}, &error), std::nullopt);
  expectError("Component binary file not executable: " + (folder / "Users/****/Launcher.app/Contents/MacOS/Launcher"));
  std::filesystem::permissions(personal, std::filesystem::perms(0755));
  applications.looks.clear();
  EXPECT_EQ(TKSUtilBase::launchAppWithExePath(personal, {}, &error), std::nullopt);
  expectError("Getting running app process timeout (more than 30 s). Path: " +
              (folder / "Users/****/Launcher.app/Contents/MacOS/Launcher"));
  for (const LogLine& line : log.lines()) EXPECT_THAT(line.text, Not(::testing::HasSubstr("jane/L")));
}

TEST_F(LaunchExecutable, ATaskThatCannotBeStartedHasNoPid) {
  children.refuses = true;
  EXPECT_EQ(launch({}), std::nullopt);
  expectError("Getting pid failed, probably launch app by NSTask failed.");
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_TRUE(log.has(2, "PID launched: 0"));
  EXPECT_THAT(log.texts(8), IsEmpty()) << "the error says it";
  EXPECT_EQ(lines().back(), info("Launch exe result 0: [pid: 0, path: " + executable + ", retryCount: 0]"));
}

TEST_F(LaunchExecutable, NothingIsStartedThatCouldNeverBeSeen) {
  applications.blind = true;
  EXPECT_EQ(launch({}), std::nullopt);
  expectError("Running apps can not be looked up, app is not launched: no table");
  EXPECT_THAT(children.requests, IsEmpty());
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_EQ(launch({"-warmup"}), std::nullopt);
  EXPECT_EQ(children.requests.size(), 1u) << "nobody waits to see it";
}

TEST_F(LaunchExecutable, AWarmUpSucceedsAtOnceWithoutAnApplication) {
  EXPECT_EQ(launch({"-warmup"}), std::nullopt);
  EXPECT_EQ(error, TKSError());
  EXPECT_THAT(clock.sleeps(), IsEmpty());
  EXPECT_EQ(lines().back(), info("Launch exe result 1: [pid: 4711, path: " + executable + ", retryCount: 0]"));
}

TEST_F(LaunchExecutable, AWarmUpSucceedsEvenWithoutAPid) {
  children.refuses = true;
  EXPECT_EQ(launch({"-warmup"}), std::nullopt);
  EXPECT_EQ(error, TKSError());
  EXPECT_EQ(lines().back(), info("Launch exe result 1: [pid: 0, path: " + executable + ", retryCount: 0]"));
}

TEST_F(LaunchExecutable, FilesWinOverPipes) {
  EXPECT_TRUE(launch({"-Communicate", "Pipe", "something", "File"}));
  EXPECT_FALSE(children.requests[0].joinStandardHandles);
  EXPECT_TRUE(log.has(2, "Want Pipe communicate: 1"));
  EXPECT_TRUE(log.has(2, "Want File communicate: 1"));
}

TEST_F(LaunchExecutable, ArgumentsOfALaunchArePassedOnAsTheyAreAndNothingIsAdded) {
  const std::vector<std::string> args = {"-Communicate",     "File",    "--x", "line\n-daemon",
                                         "-TempIPCFilePath", "/tmp/a b"};
  EXPECT_TRUE(launch(args));
  EXPECT_EQ(children.requests[0].arguments, args);
}

TEST_F(LaunchExecutable, WorksWithoutAnErrorSlot) {
  EXPECT_EQ(TKSUtilBase::launchAppWithExePath(folder / "nowhere", {}, nullptr), std::nullopt);
  EXPECT_EQ(TKSUtilBase::launchAppWithExePath("", {}, nullptr), std::nullopt);
}

TEST_F(LaunchExecutable, TheTildeIsExpandedInTheLogOnly) {
  EXPECT_EQ(TKSUtilBase::launchAppWithExePath("~/Launcher", {}, &error), std::nullopt);
  EXPECT_TRUE(log.has(2, "Exe path: " + home.realHome() + "/Launcher"));
  expectError("Component binary file not exists: ~/Launcher");
}

TEST_F(LaunchExecutable, TheBundleIsWhatLiesThreeComponentsUp) {
  const std::string shallow = folder / "tool";
  writeFile(shallow, "x");
  EXPECT_EQ(TKSUtilBase::launchAppWithExePath(shallow, {}, &error), std::nullopt);
  const std::string parent = std::filesystem::path(folder.path()).parent_path().parent_path();
  EXPECT_TRUE(log.has(2, "Check app done, result: 1, path: " + parent)) << parent;
}

TEST_F(LaunchExecutable, ALauncherThatEndsEarlyIsReportedWithItsCode) {
  applications.looks.clear();
  launch({});
  children.ended(ChildEnd{ChildEnd::How::exited, 3});
  EXPECT_EQ(log.lines().back(), warning("Launched process ended early. PID: 4711, exit code: 3"));
}

TEST_F(LaunchExecutable, TheWaitForALauncherThatHasEndedStopsAtTheNextPoll) {
  applications.looks.clear();
  int looks = 0;
  applications.onLook = [&] {
    if (++looks == 3) children.ended(ChildEnd{ChildEnd::How::exited, 3});
  };
  EXPECT_EQ(launch({}), std::nullopt);
  expectError("Launched process ended before it was running (exit code: 3). Path: " + executable);
  EXPECT_EQ(looks, 4);
  EXPECT_EQ(log.lines().back(), info("Launch exe result 0: [pid: 4711, path: " + executable + ", retryCount: 4]"));
}

/// The loop tells no end while the launch itself holds up the main thread.
TEST_F(LaunchExecutable, AWaitOnTheMainThreadForALauncherThatHasEndedStopsAtTheNextPoll) {
  applications.looks.clear();
  int looks = 0;
  applications.onLook = [&] {
    if (++looks == 3) children.untold = ChildEnd{ChildEnd::How::killed, 6};
  };
  EXPECT_EQ(launch({}), std::nullopt);
  expectError("Launched process ended before it was running (signal: 6). Path: " + executable);
  EXPECT_EQ(error.reason, TKSErrorReason::endedEarly);
  EXPECT_EQ(looks, 4);
  EXPECT_EQ(log.lines().back(), info("Launch exe result 0: [pid: 4711, path: " + executable + ", retryCount: 4]"));
}

TEST_F(LaunchExecutable, AnEarlyEndIsLoggedOnceWhoeverLearnsOfItFirst) {
  applications.looks.clear();
  children.untold = ChildEnd{ChildEnd::How::exited, 3};
  launch({});
  const std::string line = "Launched process ended early. PID: 4711, exit code: 3";
  EXPECT_THAT(log.texts(4), Contains(line).Times(1));
  children.ended(ChildEnd{ChildEnd::How::exited, 3});
  EXPECT_THAT(log.texts(4), Contains(line).Times(1));
}

TEST_F(LaunchExecutable, ALauncherThatEndsAfterItWasListedIsLaunched) {
  children.untold = ChildEnd{ChildEnd::How::exited, 0};
  EXPECT_EQ(launch({}), application());
  EXPECT_THAT(log.texts(4), Not(Contains(StartsWith("Launched process ended early."))));
}

TEST_F(LaunchExecutable, ALauncherThatIsKilledEarlyIsReportedWithTheSignal) {
  applications.looks.clear();
  launch({});
  children.ended(ChildEnd{ChildEnd::How::killed, 6});
  EXPECT_EQ(log.lines().back(), warning("Launched process ended early. PID: 4711, signal: 6"));
  launch({});
  children.ended(ChildEnd{});
  EXPECT_EQ(log.lines().back(), warning("Launched process ended early. PID: 4711, status unknown"));
}

TEST_F(LaunchExecutable, TheEndOfALauncherThatWasSeenIsNothingToReport) {
  launch({});
  const std::vector<LogLine> before = log.lines();
  children.ended(ChildEnd{ChildEnd::How::killed, 9});
  EXPECT_EQ(log.lines(), before);
}

TEST_F(LaunchExecutable, TheEndOfAWarmedUpProcessIsNothingToReport) {
  launch({"-warmup"});
  const std::vector<LogLine> before = log.lines();
  children.ended(ChildEnd{ChildEnd::How::exited, 3});
  EXPECT_EQ(log.lines(), before);
}

TEST_F(LaunchExecutable, TheEndIsToldOnceAndAfterTheResult) {
  std::vector<std::string> told;
  const auto launchResult = [&](const auto& launched, const auto&) { told.push_back(launched ? "result" : "none"); };
  const auto ended = [&](ChildEnd end) { told.push_back(tks::described(end)); };
  tks::launchExecutable(executable, {}, launchResult, ended);
  ASSERT_TRUE(drainUntil([&] { return told.size() == 1; }));
  children.ended(ChildEnd{ChildEnd::How::killed, 9});
  children.ended(ChildEnd{ChildEnd::How::killed, 9});
  EXPECT_THAT(told, ElementsAre("result", "signal: 9"));
}

TEST_F(LaunchExecutable, AnEndThatComesBeforeTheResultIsToldAfterIt) {
  std::vector<std::string> told;
  const auto launchResult = [&](const auto&, const auto&) {
    children.ended(ChildEnd{ChildEnd::How::exited, 3});
    told.push_back("result");
  };
  tks::launchExecutable(executable, {}, launchResult, [&](ChildEnd end) { told.push_back(tks::described(end)); });
  ASSERT_TRUE(drainUntil([&] { return told.size() >= 2; }));
  EXPECT_THAT(told, ElementsAre("result", "exit code: 3"));
}

TEST_F(LaunchExecutable, AnEndThatOvertakesTheAnswerOfTheStartWaitsForThePid) {
  applications.looks.clear();
  std::promise<void> begun;
  std::promise<void> reported;
  std::thread reporter;
  children.onStart = [&](const std::function<void(ChildEnd)>& ended) {
    reporter = std::thread([&, ended] {
      begun.set_value();
      ended(ChildEnd{ChildEnd::How::exited, 3});
      reported.set_value();
    });
    begun.get_future().wait();
  };
  launch({});
  ASSERT_EQ(reported.get_future().wait_for(std::chrono::seconds(30)), std::future_status::ready);
  reporter.join();
  EXPECT_TRUE(log.has(4, "Launched process ended early. PID: 4711, exit code: 3"));
}

TEST_F(LaunchExecutable, TheEndIsNotToldToThoseWhoGotNoApplication) {
  std::vector<std::string> told;
  const auto launchResult = [&](const auto& launched, const auto&) { told.push_back(launched ? "result" : "none"); };
  const auto ended = [&](ChildEnd end) { told.push_back(tks::described(end)); };
  applications.looks.clear();
  tks::launchExecutable(executable, {}, launchResult, ended);
  ASSERT_TRUE(drainUntil([&] { return told.size() == 1; }));
  children.ended(ChildEnd{ChildEnd::How::exited, 1});
  EXPECT_THAT(told, ElementsAre("none"));
}

TEST_F(LaunchExecutable, TheResultComesOnTheMainThread) {
  std::optional<TKSRunningApplication> result;
  std::optional<TKSError> resultError;
  std::thread::id thread;
  int calls = 0;
  const auto launchResult = [&](const std::optional<TKSRunningApplication>& launched,
                                const std::optional<TKSError>& failed) {
    result = launched;
    resultError = failed;
    thread = std::this_thread::get_id();
    ++calls;
  };
  TKSUtilBase::launchAppWithExePath(executable, {}, launchResult);
  EXPECT_TRUE(drainUntil([&] { return calls == 1; }));
  EXPECT_EQ(result, application());
  EXPECT_EQ(resultError, std::nullopt);
  EXPECT_EQ(thread, std::this_thread::get_id());
  EXPECT_EQ(clock.sleepsOnMainThread(), 0);

  TKSUtilBase::launchAppWithExePath(folder / "nowhere", {}, launchResult);
  EXPECT_TRUE(drainUntil([&] { return calls == 2; }));
  EXPECT_EQ(result, std::nullopt);
  EXPECT_EQ(resultError,
            (TKSError{"com.tarvo.kovra.TKSUtil", 0, "Component binary file not exists: " + folder / "nowhere"}));

  TKSUtilBase::launchAppWithExePath(executable, {"-warmup"}, launchResult);
  EXPECT_TRUE(drainUntil([&] { return calls == 3; }));
  EXPECT_EQ(result, std::nullopt);
  EXPECT_EQ(resultError, std::nullopt) << "a warm-up is no failure";
}

TEST_F(LaunchExecutable, WhatTheResultCallbackHoldsIsLetGoOfOnTheMainThread) {
  std::thread::id releasedOn;
  for (int i = 0; i < 50; ++i) {
    bool called = false;
    bool releasedAfterwards = false;
    const auto release = [&](int* held) {
      delete held;
      releasedOn = std::this_thread::get_id();
      releasedAfterwards = called;
    };
    TKSUtilBase::launchAppWithExePath(
        folder / "nowhere", {},
        [&called, held = std::shared_ptr<int>(new int, release)](const std::optional<TKSRunningApplication>&,
                                                                 const std::optional<TKSError>&) { called = true; });
    ASSERT_TRUE(drainUntil([&] { return called; }));
    EXPECT_TRUE(releasedAfterwards) << "it is still held somewhere";
    EXPECT_EQ(releasedOn, std::this_thread::get_id());
  }
}

TEST_F(LaunchExecutable, NobodyNeedsToWaitForTheResult) {
  TKSUtilBase::launchAppWithExePath(executable, {}, TKSLaunchResultBlock());
  EXPECT_TRUE(log.waitFor(2, "Launch exe result 1: [pid: 4711, path: " + executable + ", retryCount: 1]"));
}

TEST_F(LaunchExecutable, AResultCallbackThatThrowsIsCaught) {
  TKSUtilBase::launchAppWithExePath(executable, {},
                                    [](const auto&, const auto&) { throw std::runtime_error("host's own"); });
  EXPECT_TRUE(drainUntil([&] { return log.has(8, "Callback 'launchResult' threw an exception: host's own"); }));
}

TEST_F(LaunchExecutable, TheOriginalStandardHandlesAreThoseOfThePlatform) {
  EXPECT_EQ(TKSUtilBase::originalStandardInput(), 71);
  EXPECT_EQ(TKSUtilBase::originalStandardOutput(), 72);
}

struct ScanCase {
  std::vector<std::string> arguments;
  bool warmUp, pipe, file, joins;
};

TEST(LaunchArguments, CountWholeAndCaseSensitivelyWhereverTheyStand) {
  const ScanCase cases[] = {
      {{}, false, false, false, false},
      {{"-Communicate", "Pipe"}, false, true, false, true},
      {{"Pipe", "x", "-Communicate"}, false, true, false, true},
      {{"-Communicate", "File"}, false, false, true, false},
      {{"-Communicate", "Pipe", "File"}, false, true, true, false},
      {{"File", "Pipe", "-Communicate"}, false, true, true, false},
      {{"-Communicate"}, false, false, false, false},
      {{"Pipe"}, false, false, false, false},
      {{"File"}, false, false, false, false},
      {{"-communicate", "Pipe"}, false, false, false, false},
      {{"Communicate", "Pipe"}, false, false, false, false},
      {{"--Communicate", "Pipe"}, false, false, false, false},
      {{"-Communicate=Pipe"}, false, false, false, false},
      {{"-Communicate", "pipe"}, false, false, false, false},
      {{"-Communicate", "Pipes"}, false, false, false, false},
      {{"-warmup"}, true, false, false, false},
      {{"a", "-warmup", "-Communicate", "Pipe"}, true, true, false, true},
      {{"-Warmup"}, false, false, false, false},
      {{"warmup"}, false, false, false, false},
      {{"-warmup=1"}, false, false, false, false},
  };
  for (const ScanCase& one : cases) {
    const tks::LaunchArguments scanned = tks::scanLaunchArguments(one.arguments);
    SCOPED_TRACE(::testing::PrintToString(one.arguments));
    EXPECT_EQ(scanned.warmUp, one.warmUp);
    EXPECT_EQ(scanned.wantsPipe, one.pipe);
    EXPECT_EQ(scanned.wantsFile, one.file);
    EXPECT_EQ(scanned.joinsStandardHandles(), one.joins);
  }
}

}  // namespace

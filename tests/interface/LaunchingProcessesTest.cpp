#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include <tksinterface/TKSConversationObserver.h>
#include <tksinterface/TKSInterface.h>
#include <tksinterface/TKSUtilBase.h>

#include "platform/platform.h"
#include "tests/interface/LaunchingTest.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/Frames.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LaunchedMeeting.h"
#include "tests/support/ProcessState.h"

namespace {

namespace fs = std::filesystem;
using namespace tks::test;

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

/// Real processes, on a lab device.
class LaunchingProcesses : public ::testing::Test {
 protected:
  /// Puts something else in the place of the launcher's executable.
  static void replace(const FakeLauncher& launcher, const std::string& content, mode_t mode = 0755) {
    fs::remove(launcher.executable());
    writeFile(launcher.executable(), content);
    ::chmod(launcher.executable().c_str(), mode);
  }

  FakeHome home;
  FakePreferences preferences{{{"IsLabDevice", true}}};
  LogRecorder log;
  TKSError error;
};

/// One exchange over this process's standard handles.
bool saysHello() {
  const std::string hello = frame(R"({"message_type":"hello","message":"hello"})");
  if (::write(1, hello.data(), hello.size()) != std::ssize(hello)) return false;
  const std::string expected = frame(R"({"message_type":"hello_ack","message":"hello_ack"})");
  std::string heard;
  while (heard.size() < expected.size()) {
    std::array<char, 256> piece;
    pollfd watched{0, POLLIN, 0};
    if (::poll(&watched, 1, 10000) <= 0) return false;
    const ssize_t count = ::read(0, piece.data(), piece.size());
    if (count <= 0) return false;
    heard.append(piece.data(), static_cast<std::size_t>(count));
  }
  return heard == expected;
}

TEST_F(LaunchingProcesses, ALaunchedPipeLauncherListensOnTheStandardHandles) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher({"--dump-arguments", "arguments"});
  const std::vector<std::string> args = {"-LaunchMethod", "SDK", "-Communicate", "Pipe"};
  const auto launched = TKSUtilBase::launchAppWithExePath(launcher.executable(), args, &error);
  ASSERT_TRUE(launched) << error.description();
  EXPECT_EQ(launched->bundlePath, launcher.bundle());
  EXPECT_EQ(launched->bundleIdentifier, "com.tarvo.kovra.Tarvo-Kovra-Start");
  EXPECT_THAT(launcher.processes(), ElementsAre(launched->processIdentifier));
  EXPECT_TRUE(saysHello());
  EXPECT_GT(TKSUtilBase::originalStandardInput(), 2);
  std::string expected = launcher.executable() + '\0';
  for (const std::string& arg : args) expected += arg + '\0';
  EXPECT_EQ(launcher.report("arguments"), expected);

  EXPECT_TRUE(TKSUtilBase::forceTerminateApp(launched));
  EXPECT_THAT(launcher.processes(), IsEmpty());
  EXPECT_TRUE(drainUntil([] { return children().empty(); }));
}

TEST_F(LaunchingProcesses, WhoWatchesConversationsIsToldOfTheLaunchersStartAndEnd) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher;
  std::vector<std::string> told;
  std::mutex mutex;
  TKSConversationObserver::observe([&](const TKSConversationEvent& event) {
    const std::scoped_lock lock(mutex);
    if (event.kind == TKSConversationEvent::Kind::started) told.push_back("started " + std::string(event.text));
    if (event.kind == TKSConversationEvent::Kind::ended) told.push_back("ended " + std::string(event.text));
    EXPECT_GT(event.processIdentifier, 0);
  });
  const auto launched = TKSUtilBase::launchAppWithExePath(launcher.executable(),
                                                          {"-LaunchMethod", "SDK", "-Communicate", "Pipe"}, &error);
  ASSERT_TRUE(launched) << error.description();
  ::kill(launched->processIdentifier, SIGKILL);
  EXPECT_TRUE(drainUntil([&] {
    const std::scoped_lock lock(mutex);
    return told.size() == 2;
  }));
  TKSConversationObserver::observe(nullptr);
  EXPECT_THAT(told, ElementsAre("started " + launcher.executable(), "ended signal: 9"));
}

TEST_F(LaunchingProcesses, AHostThatPrintsAfterAMeetingIsHeardAndNotKilled) {
  TKS_IN_FRESH_PROCESS();
  std::array<int, 2> terminal{};
  ASSERT_EQ(::pipe2(terminal.data(), O_CLOEXEC), 0);
  ::dup2(terminal[1], 1);
  const int original = TKSUtilBase::originalStandardOutput();
  const FakeLauncher launcher;
  TKSInterface tks;
  tks.setTKSAppPath(launcher.bundle());
  for (int meetings = 0; meetings < 2; ++meetings) {
    ASSERT_TRUE(tks::test::launchesAMeeting(tks));
    ASSERT_TRUE(drainUntil([&] { return !tks.isTKSAppProcessing(); }));
    EXPECT_EQ(::write(1, "done", 4), 4);
    std::array<char, 16> heard{};
    EXPECT_EQ(::read(terminal[0], heard.data(), heard.size()), 4);
    EXPECT_STREQ(heard.data(), "done");
    EXPECT_EQ(TKSUtilBase::originalStandardOutput(), original);
  }
  EXPECT_TRUE(drainUntil([] { return children().empty(); }));
  EXPECT_EQ(::write(1, "done", 4), 4);
}

TEST_F(LaunchingProcesses, AHostThatPrintsAfterAFailedLaunchIsNotKilled) {
  TKS_IN_FRESH_PROCESS();
  FakeClock clock;
  const FakeLauncher launcher({"--exit", "3"});
  TKSInterface tks;
  tks.setTKSAppPath(launcher.bundle());
  bool failed = false;
  tks.start([] {}, [&](const TKSError&) { failed = true; });
  ASSERT_TRUE(drainUntil([&] { return failed && children().empty(); }, std::chrono::seconds(60)));
  EXPECT_TRUE(drainUntil([] { return tks::test::targetOf(1) == "/dev/null"; }));
  EXPECT_EQ(::write(1, "done", 4), 4);
}

TEST_F(LaunchingProcesses, WithFilesTheStandardHandlesStayAsTheyAre) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher({"--mute"});
  const auto launched = TKSUtilBase::launchAppWithExePath(
      launcher.executable(), {"-Communicate", "File", "-TempIPCFilePath", "/tmp", "Pipe"}, &error);
  ASSERT_TRUE(launched) << error.description();
  EXPECT_EQ(tks::test::targetOf(0), tks::test::targetOf(TKSUtilBase::originalStandardInput()));
  EXPECT_EQ(tks::test::targetOf(1), tks::test::targetOf(TKSUtilBase::originalStandardOutput()));
  EXPECT_EQ(tks::test::targetOf(1), "/dev/null");
}

TEST_F(LaunchingProcesses, WhatCannotRunGivesTheDescribedTextsAndLeavesNothing) {
  TKS_IN_FRESH_PROCESS();
  TKSMainLoop::descriptor();
  const FakeLauncher launcher;
  const std::set<int> descriptors = openDescriptors();
  const auto reason = [&] {
    error = TKSError();
    EXPECT_EQ(TKSUtilBase::launchAppWithExePath(launcher.executable(), {"-Communicate", "Pipe"}, &error), std::nullopt);
    return error.localizedDescription;
  };
  replace(launcher, "x", 0644);
  EXPECT_EQ(reason(), "Component binary file not executable: " + launcher.executable());
  const std::string noPid = "Getting pid failed, probably launch app by NSTask failed.";
  replace(launcher, "just text\n");
  EXPECT_EQ(reason(), noPid);
  replace(launcher, "#!/nowhere/at/all\n");
  EXPECT_EQ(reason(), noPid);
  replace(launcher, "\x7f" + std::string("ELF\x02\x01\x01") + std::string(200, '\0'));
  EXPECT_EQ(reason(), noPid);
  fs::remove(launcher.executable());
  EXPECT_EQ(reason(), "Component binary file not exists: " + launcher.executable());
  fs::create_directory(launcher.executable());
  EXPECT_EQ(reason(), "Component binary file not executable: " + launcher.executable());
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_THAT(children(), IsEmpty());
  EXPECT_EQ(tks::test::targetOf(1), "/dev/null");
}

TEST_F(LaunchingProcesses, ALauncherThatEndsAtOnceIsNamedWithItsCodeOrSignal) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher;
  for (const auto& [script, line] : {std::pair("exit 3", "exit code: 3"), std::pair("kill -ABRT $$", "signal: 6")}) {
    // A script runs inside of its interpreter and so is never listed as a running application, however fast we look.
    // Nobody runs the loop meanwhile.
    replace(launcher, std::string("#!/bin/sh\n") + script + "\n");
    EXPECT_EQ(TKSUtilBase::launchAppWithExePath(launcher.executable(), {}, &error), std::nullopt);
    EXPECT_EQ(error.localizedDescription, std::string("Launched process ended before it was running (") + line +
                                              "). Path: " + launcher.executable());
    const std::vector<std::string> warnings = log.texts(4);
    ASSERT_THAT(warnings, Not(IsEmpty()));
    EXPECT_THAT(warnings.back(), StartsWith("Launched process ended early. PID: "));
    EXPECT_THAT(warnings.back(), EndsWith(line));
    EXPECT_TRUE(drainUntil([] { return children().empty(); }));
  }
}

TEST_F(LaunchingProcesses, AWarmUpStartsTheProcessAndDoesNotWait) {
  const FakeLauncher launcher({"--dump-arguments", "arguments", "--exit", "0"});
  EXPECT_EQ(TKSUtilBase::launchAppWithExePath(launcher.executable(), {"-warmup"}, &error), std::nullopt);
  EXPECT_EQ(error, TKSError());
  EXPECT_EQ(launcher.report("arguments"), launcher.executable() + '\0' + "-warmup" + '\0');
}

TEST_F(LaunchingProcesses, TheWorkspaceStartsABundle) {
  const FakeLauncher launcher({"--wont-die"});
  const auto launched = TKSUtilBase::launchApp(launcher.bundle(), {"-a"}, &error);
  ASSERT_TRUE(launched) << error.description();
  EXPECT_EQ(::getsid(launched->processIdentifier), launched->processIdentifier);
  EXPECT_TRUE(TKSUtilBase::forceTerminateApp(launched));
  // It leaves the list of applications a moment before it is gone for good.
  for (int look = 0; look < 5000 && ::kill(launched->processIdentifier, 0) == 0; ++look) {
    tks::platform::runningApplications().find(launched->processIdentifier);
    ::usleep(1000);
  }
  EXPECT_TRUE(TKSUtilBase::forceTerminateApp(launched)) << "it is gone, as was wanted";
}

TEST_F(LaunchingProcesses, TheWorkspaceNamesWhatItCannotStart) {
  FakeClock clock;
  const FakeLauncher launcher;
  replace(launcher, "just text\n");
  EXPECT_FALSE(TKSUtilBase::launchApp(launcher.bundle(), {}, &error));
  EXPECT_EQ(error,
            (TKSError{"NSPOSIXErrorDomain", ENOEXEC, "launch \"" + launcher.executable() + "\": Exec format error"}));
  EXPECT_EQ(clock.sleeps().size(), 10u);
}

TEST_F(LaunchingProcesses, AllLaunchModulesAreEnded) {
  const FakeLauncher launcher({"--wont-die"});
  const FakeLauncher client({"--wont-die"});
  writeFile(client.bundle() + "/Contents/Info.plist",
            "<plist version=\"1.0\"><dict><key>CFBundleName</key><string>Kovra64 (44.1.0)</string></dict></plist>");
  const FakeLauncher other({"--wont-die"});
  writeFile(other.bundle() + "/Contents/Info.plist",
            "<plist version=\"1.0\"><dict><key>CFBundleName</key><string>Other</string></dict></plist>");
  for (const FakeLauncher* one : {&launcher, &launcher, &client, &other}) {
    ASSERT_TRUE(tks::platform::runningApplications().launch(one->bundle(), {}, &error)) << error.description();
  }
  OwnApplications own({launcher.bundle(), client.bundle(), other.bundle()});
  EXPECT_TRUE(TKSUtilBase::endLaunchModules());
  EXPECT_THAT(launcher.processes(), IsEmpty());
  EXPECT_THAT(client.processes(), IsEmpty());
  EXPECT_EQ(other.processes().size(), 1u);
  EXPECT_TRUE(log.has(2, "Check and end launch modules end: 1"));
  EXPECT_THAT(log.texts(4), ::testing::Contains("End process: Kovra64 (44.1.0), bid: (null)"));
}

TEST_F(LaunchingProcesses, StartsAndStopsLeaveNothingBehind) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher;
  const auto cycle = [&] {
    std::optional<TKSRunningApplication> launched;
    {
      const QuickClock clock;
      launched = TKSUtilBase::launchAppWithExePath(launcher.executable(), {"-Communicate", "Pipe"}, &error);
    }
    ASSERT_TRUE(launched) << error.description();
    ASSERT_TRUE(saysHello());
    ASSERT_TRUE(TKSUtilBase::forceTerminateApp(launched));
    ASSERT_TRUE(drainUntil([] { return children().empty(); }));
  };
  ASSERT_NO_FATAL_FAILURE(cycle());
  const std::set<int> descriptors = openDescriptors();
  const std::size_t threads = threadCount();
  for (int i = 0; i < 50; ++i) ASSERT_NO_FATAL_FAILURE(cycle());
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_EQ(threadCount(), threads);
}

}  // namespace

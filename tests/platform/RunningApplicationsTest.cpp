#include "platform/running_applications.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/child_processes.h"
#include "platform/platform.h"
#include "tests/platform/RunningApplicationsTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/ProcessState.h"

// What every back end promises of running applications. On macOS they are what has checked in with the system, whose
// names are those of their start; asking one to quit is an event, which it may refuse; a launch is the workspace's,
// whose errors are its own and which notes the date where the volume is indexed, which temporary folders are not. How
// Linux does the same: linux/processes/SignalledApplicationsTest.cpp.

namespace {

namespace fs = std::filesystem;
using tks::platform::runningApplications;
using tks::test::ChildProcess;
using tks::test::FakeLauncher;
using tks::test::RunningApplications;
using tks::test::Started;
using tks::test::waitUntil;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

TEST_F(RunningApplications, AProcessOfABundleIsFoundWithWhatTheBundleSays) {
  const Started started(launcher);
  const auto found = runningApplications().find(started.pid());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->processIdentifier, started.pid());
  EXPECT_EQ(found->bundleIdentifier, "com.tarvo.kovra.Tarvo-Kovra-Start");
  EXPECT_EQ(found->localizedName, "Tarvo Kovra Start");
  EXPECT_EQ(found->bundlePath, launcher.bundle());
  EXPECT_GT(found->startTime, 0u);
  EXPECT_EQ(runningApplications().find(started.pid()), found) << "the same again";
}

TEST_F(RunningApplications, ThereIsNoneForAProcessOutsideOfABundle) {
  EXPECT_EQ(runningApplications().find(::getpid()), std::nullopt);
  EXPECT_EQ(runningApplications().find(0), std::nullopt);
  EXPECT_EQ(runningApplications().find(-1), std::nullopt);
  EXPECT_EQ(runningApplications().find(0x7fffffff), std::nullopt);
}

TEST_F(RunningApplications, TheDisplayNameComesBeforeTheName) {
  writeInformation("<key>CFBundleDisplayName</key><string>Shown</string><key>CFBundleName</key><string>Name</string>");
  const Started started(launcher);
  EXPECT_EQ(runningApplications().find(started.pid())->localizedName, "Shown");
}

TEST_F(RunningApplications, AProcessWhoseBundleWasRemovedIsStillFound) {
  const Started started(launcher);
  fs::remove_all(launcher.bundle());
  const auto found = runningApplications().find(started.pid());
  ASSERT_TRUE(found);
  EXPECT_EQ(found->bundlePath, launcher.bundle());
}

TEST_F(RunningApplications, AProcessThatHasEndedIsNotFoundEvenBeforeItIsCollected) {
  const Started started(launcher);
  ASSERT_EQ(::kill(started.pid(), SIGKILL), 0);
  siginfo_t facts{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(started.pid()), &facts, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(runningApplications().find(started.pid()), std::nullopt);
  EXPECT_THAT(listed(launcher), IsEmpty());
}

int launcherOfAnotherUser(const tks::test::Arguments& arguments) {
  if (::setgid(65534) != 0 || ::setuid(65534) != 0) return 77;
  ::execl(arguments.at(0).c_str(), arguments.at(0).c_str(), nullptr);
  return 78;
}
const tks::test::ChildRole kLauncherOfAnotherUser("launcher-of-another-user", launcherOfAnotherUser);

TEST_F(RunningApplications, ThoseOfOtherUsersDoNotCount) {
  if (::getuid() != 0) GTEST_SKIP() << "needs the right to become another user";
  fs::permissions(fs::path(launcher.bundle()).parent_path(), fs::perms(0755));
  const ChildProcess process =
      ChildProcess::inRole("launcher-of-another-user", {launcher.executable()}, {"TKS_FAKE_LAUNCHER=--script wait"});
  ASSERT_TRUE(waitUntil([&] { return !launcher.processes().empty(); }));
  EXPECT_EQ(runningApplications().find(process.pid()), std::nullopt);
  EXPECT_THAT(listed(launcher), IsEmpty());
}

TEST_F(RunningApplications, AllAreListed) {
  EXPECT_THAT(listed(launcher), IsEmpty());
  const FakeLauncher other;
  const Started first(launcher);
  const Started second(other);
  const Started third(launcher);
  EXPECT_THAT(listed(launcher), UnorderedElementsAre(runningApplications().find(first.pid()).value(),
                                                     runningApplications().find(third.pid()).value()));
  EXPECT_THAT(listed(other), ElementsAre(runningApplications().find(second.pid()).value()));
}

TEST_F(RunningApplications, ForceTerminationEndsTheProcessAtOnce) {
  launcher.setSwitches({"--wont-die"});
  Started started(launcher);
  const auto application = runningApplications().find(started.pid());
  ASSERT_TRUE(application);
  EXPECT_TRUE(runningApplications().forceTerminate(*application));
  EXPECT_EQ(started.wait(), 128 + SIGKILL);
  EXPECT_FALSE(runningApplications().forceTerminate(*application)) << "it is gone";
}

TEST_F(RunningApplications, TerminationIsPolite) {
  launcher.setSwitches({"--wont-die"});
  tks::test::writeFile(launcher.file("ready"), "send {}\nsleep 100s\n");
  Started stubborn(launcher);
  ASSERT_TRUE(waitUntil([&] { return tks::test::ignoresSignal(stubborn.pid(), SIGTERM); }));
  EXPECT_TRUE(runningApplications().terminate(*runningApplications().find(stubborn.pid())));
  EXPECT_TRUE(runningApplications().find(stubborn.pid())) << "it does not want to";
  launcher.setSwitches({});
  Started willing(launcher);
  EXPECT_TRUE(runningApplications().terminate(*runningApplications().find(willing.pid())));
  EXPECT_TRUE(waitUntil([&] { return !tks::test::isRunning(willing.pid()); }));
}

TEST_F(RunningApplications, AProcessThatOnlyHasTheSameIdentifierIsLeftAlone) {
  const Started started(launcher);
  TKSRunningApplication earlier = *runningApplications().find(started.pid());
  earlier.startTime -= 1;
  EXPECT_FALSE(runningApplications().forceTerminate(earlier));
  EXPECT_FALSE(runningApplications().terminate(earlier));
  EXPECT_TRUE(runningApplications().find(started.pid()));
}

TEST_F(RunningApplications, NothingIsSignalledWithoutAProcessIdentifier) {
  TKSRunningApplication none;
  for (const std::int32_t pid : {0, -1, -::getpid()}) {
    none.processIdentifier = pid;
    EXPECT_FALSE(runningApplications().forceTerminate(none));
    EXPECT_FALSE(runningApplications().terminate(none));
  }
}

TEST_F(RunningApplications, LaunchingStartsANewInstance) {
  launcher.setSwitches({"--script", "wait"});
  const auto first = runningApplications().launch(launcher.bundle(), {"-one", "two words"}, &error);
  const auto second = runningApplications().launch(launcher.bundle() + "/", {}, &error);
  ASSERT_TRUE(first && second) << error.description();
  EXPECT_NE(first->processIdentifier, second->processIdentifier);
  EXPECT_EQ(runningApplications().find(first->processIdentifier), first);
  EXPECT_EQ(runningApplications().find(second->processIdentifier), second);
  launcher.endAll();
}

TEST_F(RunningApplications, ALaunchedInstanceGetsItsArguments) {
  // The workspace of macOS takes one that has ended before it checked in for one that did not start.
  launcher.setSwitches({"--dump-arguments", "arguments", "--script", "wait"});
  const std::vector<std::string> arguments = {"-one", "two words", "", "\xe2\x82\xac"};
  ASSERT_TRUE(runningApplications().launch(launcher.bundle(), arguments, &error));
  std::string expected = launcher.executable() + '\0';
  for (const std::string& argument : arguments) expected += argument + '\0';
  EXPECT_EQ(launcher.report("arguments"), expected);
  launcher.endAll();
}

TEST_F(RunningApplications, WhatCannotBeLaunchedIsAnError) {
  EXPECT_FALSE(runningApplications().launch("/nowhere/at/all.app", {}, &error));
  EXPECT_NE(error, TKSError());
  fs::permissions(launcher.executable(), fs::perms(0644));
  error = TKSError();
  EXPECT_FALSE(runningApplications().launch(launcher.bundle(), {}, &error));
  EXPECT_NE(error, TKSError());
  EXPECT_FALSE(runningApplications().hasLastUsedDate(launcher.bundle()));
  EXPECT_FALSE(runningApplications().launch(launcher.bundle(), {}, nullptr));
}

TEST_F(RunningApplications, NoLookLeavesADescriptorOpen) {
  TKS_IN_FRESH_PROCESS();
  TKSMainLoop::descriptor();
  const Started started(launcher);
  const std::set<int> before = tks::test::openDescriptors();
  for (int i = 0; i < 100; ++i) {
    runningApplications().find(started.pid());
    runningApplications().find(i);
    runningApplications().list();
  }
  runningApplications().forceTerminate(*runningApplications().find(started.pid()));
  EXPECT_EQ(tks::test::openDescriptors(), before);
}

}  // namespace

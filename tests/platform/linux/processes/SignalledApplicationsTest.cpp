#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "platform/platform.h"
#include "tests/platform/RunningApplicationsTest.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/HostLoop.h"
#include "tests/support/ProcessState.h"

// How Linux knows, starts and ends applications: by bundles as they are now, sessions, attributes and signals.

namespace {

namespace fs = std::filesystem;
using tks::platform::runningApplications;
using tks::test::ChildProcess;
using tks::test::RunningApplications;
using tks::test::Started;
using tks::test::waitUntil;

TEST_F(RunningApplications, TheDisplayNameComesBeforeTheNameAndThatBeforeTheBundles) {
  writeInformation("<key>CFBundleDisplayName</key><string>Shown</string><key>CFBundleName</key><string>Name</string>");
  const Started started(launcher);
  EXPECT_EQ(runningApplications().find(started.pid())->localizedName, "Shown");
  writeInformation("<key>CFBundleName</key><string>Name</string>");
  EXPECT_EQ(runningApplications().find(started.pid())->localizedName, "Name") << "the file has changed";
  EXPECT_EQ(runningApplications().find(started.pid())->bundleIdentifier, "");
  fs::remove(launcher.bundle() + "/Contents/Info.plist");
  EXPECT_EQ(runningApplications().find(started.pid())->localizedName, "Tarvo Kovra Start");
}

TEST_F(RunningApplications, TerminationIsASignalThatMayBeIgnored) {
  launcher.setSwitches({"--wont-die"});
  tks::test::writeFile(launcher.file("ready"), "send {}\nsleep 100s\n");
  Started stubborn(launcher);
  ASSERT_TRUE(waitUntil([&] { return tks::test::ignoresSignal(stubborn.pid(), SIGTERM); }));
  EXPECT_TRUE(runningApplications().terminate(*runningApplications().find(stubborn.pid())));
  EXPECT_TRUE(runningApplications().find(stubborn.pid())) << "it does not want to";
  launcher.setSwitches({});
  Started willing(launcher);
  EXPECT_TRUE(runningApplications().terminate(*runningApplications().find(willing.pid())));
  EXPECT_EQ(willing.wait(), 128 + SIGTERM);
}

TEST_F(RunningApplications, LaunchingStartsANewInstanceInASessionOfItsOwn) {
  launcher.setSwitches({"--dump-arguments", "arguments", "--dump-descriptors", "descriptors", "--script", "wait"});
  const auto first = runningApplications().launch(launcher.bundle(), {"-one", "two words"}, &error);
  const auto second = runningApplications().launch(launcher.bundle() + "/", {}, &error);
  ASSERT_TRUE(first && second) << error.description();
  EXPECT_NE(first->processIdentifier, second->processIdentifier);
  EXPECT_EQ(runningApplications().find(first->processIdentifier), first);
  EXPECT_EQ(runningApplications().find(second->processIdentifier), second);
  EXPECT_EQ(::getsid(first->processIdentifier), first->processIdentifier);
  EXPECT_EQ(launcher.report("descriptors"), "0 /dev/null\n1 /dev/null\n2 /dev/null\n");
  launcher.endAll();
  EXPECT_TRUE(tks::test::drainUntil([] { return tks::test::children().empty(); }, std::chrono::seconds(1)));
}

TEST_F(RunningApplications, ALaunchedInstanceGetsBytesThatAreNoText) {
  launcher.setSwitches({"--dump-arguments", "arguments", "--exit", "0"});
  const std::vector<std::string> arguments = {"\xff", "a\x80"};
  ASSERT_TRUE(runningApplications().launch(launcher.bundle(), arguments, &error));
  std::string expected = launcher.executable() + '\0';
  for (const std::string& argument : arguments) expected += argument + '\0';
  EXPECT_EQ(launcher.report("arguments"), expected);
}

TEST_F(RunningApplications, LaunchingNotesTheLastUsedDateInAnAttribute) {
  // Not std::time: its seconds begin a few milliseconds late.
  const auto seconds = [] {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::int64_t{std::chrono::floor<std::chrono::seconds>(sinceEpoch).count()};
  };
  launcher.setSwitches({"--exit", "0"});
  EXPECT_FALSE(runningApplications().hasLastUsedDate(launcher.bundle()));
  const std::int64_t before = seconds();
  ASSERT_TRUE(runningApplications().launch(launcher.bundle(), {}, &error));
  std::int64_t date[3] = {};
  const ssize_t size = ::getxattr(launcher.bundle().c_str(), "user.com.apple.lastuseddate#PS", date, sizeof date);
  if (size < 0 && errno == ENOTSUP) GTEST_SKIP() << "no attributes here";
  EXPECT_EQ(size, 16);
  EXPECT_GE(date[0], before);
  EXPECT_LE(date[0], seconds());
  EXPECT_TRUE(date[1] >= 0 && date[1] < 1'000'000'000) << date[1];
  EXPECT_TRUE(runningApplications().hasLastUsedDate(launcher.bundle()));
  EXPECT_TRUE(runningApplications().hasLastUsedDate(launcher.bundle() + "/"));
  EXPECT_FALSE(runningApplications().hasLastUsedDate(launcher.bundle() + "/Contents"));
}

TEST_F(RunningApplications, WhatCannotBeLaunchedIsAnErrorOfTheKernel) {
  EXPECT_FALSE(runningApplications().launch("/nowhere/at/all.app", {}, &error));
  EXPECT_EQ(error,
            (TKSError{"NSPOSIXErrorDomain", ENOENT, "launch \"/nowhere/at/all.app\": No such file or directory"}));
  fs::permissions(launcher.executable(), fs::perms(0644));
  EXPECT_FALSE(runningApplications().launch(launcher.bundle(), {}, &error));
  EXPECT_EQ(error,
            (TKSError{"NSPOSIXErrorDomain", EACCES, "launch \"" + launcher.executable() + "\": Permission denied"}));
  EXPECT_FALSE(runningApplications().hasLastUsedDate(launcher.bundle()));
  EXPECT_FALSE(runningApplications().launch(launcher.bundle(), {}, nullptr));
}

TEST_F(RunningApplications, AScriptIsLaunchedAsWell) {
  fs::remove(launcher.executable());
  tks::test::writeFile(launcher.executable(), "#!/bin/sh\necho \"$1\" > \"$(dirname \"$0\")/said\"\n");
  fs::permissions(launcher.executable(), fs::perms(0755));
  const auto launched = runningApplications().launch(launcher.bundle(), {"hello"}, &error);
  ASSERT_TRUE(launched) << error.description();
  EXPECT_EQ(launched->bundlePath, launcher.bundle());
  EXPECT_TRUE(waitUntil([&] { return tks::test::contentOf(launcher.file("said")) == "hello\n"; }));
}

int applicationThatTerminatesItself(const tks::test::Arguments&) {
  runningApplications().terminateThisApplication();
  return 0;
}
const tks::test::ChildRole kTerminatesItself("terminates-itself", applicationThatTerminatesItself);

TEST_F(RunningApplications, ThisOneEndsByTheSignalThatAsks) {
  EXPECT_EQ(ChildProcess::inRole("terminates-itself").wait(), 128 + SIGTERM);
}

}  // namespace

#include "platform/child_processes.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "tests/platform/ChildProcessesTest.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/ProcessFacts.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"

// What every implementation of the contract promises. On macOS children are started by posix_spawn, with handles, mask
// and handling of signals set in the child; a process source tells of the end, whose status is unknown when somebody
// else has collected the child.

namespace {

using tks::platform::ChildEnd;
using tks::platform::childProcesses;
using tks::platform::ChildRequest;
using tks::test::Child;
using tks::test::ChildProcesses;
using tks::test::children;
using tks::test::drainUntil;
using tks::test::FakeLauncher;
using tks::test::numbers;
using tks::test::openDescriptors;
using tks::test::pieces;
using tks::test::waitUntil;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST_F(ChildProcesses, ArgumentsArriveByteForByte) {
  const FakeLauncher launcher({"--dump-arguments", "arguments", "--exit", "0"});
  const std::vector<std::string> arguments = {
      "-LaunchMethod", "SDK",          "two words",    "\"double\" and 'single'",
      "line\nbreak",   "--dashes",     "-daemon",      "",
      "$(touch x);*?", "\x80\xff\xc3", "\xe2\x82\xac", std::string(100 * 1024, 'l')};
  Child child;
  ASSERT_TRUE(child.start(launcher.executable(), arguments)) << child.error.description();
  std::vector<std::string> expected = arguments;
  expected.insert(expected.begin(), launcher.executable());
  EXPECT_EQ(pieces(launcher.report("arguments"), '\0'), expected);
  EXPECT_TRUE(child.waitForEnd());
}

TEST_F(ChildProcesses, ArgumentsThatCannotBePassedAreAnError) {
  const FakeLauncher launcher;
  Child child;
  EXPECT_FALSE(child.start(launcher.executable(), {std::string(5u << 20, 'x')}));
  EXPECT_EQ(child.error,
            (TKSError{"NSPOSIXErrorDomain", E2BIG, "start \"" + launcher.executable() + "\": Argument list too long"}));
  EXPECT_FALSE(child.start(launcher.executable(), {std::string("a\0b", 3)}));
  EXPECT_EQ(child.error.code, EINVAL);
  EXPECT_THAT(launcher.processes(), IsEmpty());
}

TEST_F(ChildProcesses, WhatCannotBeStartedIsAnErrorAndLeavesNothing) {
  const tks::test::TemporaryFolder folder;
  const auto file = [&](const char* name, std::string_view content, mode_t mode) {
    tks::test::writeFile(folder / name, content);
    ::chmod((folder / name).c_str(), mode);
    return folder / name;
  };
  const std::pair<std::string, int> cases[] = {
      {folder / "missing", ENOENT},
      {folder.path(), EACCES},
      {file("noright", "#!/bin/sh\n", 0644), EACCES},
      {file("text", "just text\n", 0755), ENOEXEC},
      {file("noInterpreter", "#!/nowhere/at/all\n", 0755), ENOENT},
      {file("foreign",
            std::string("\x7f"
                        "ELF\x02\x01\x01\0\0\0\0\0\0\0\0\0\x02\0\x16\0\x01\0\0\0",
                        24) +
                std::string(200, '\0'),
            0755),
       ENOEXEC},
  };
  const std::set<int> descriptors = openDescriptors();
  for (const auto& [executable, code] : cases) {
    Child child;
    EXPECT_FALSE(child.start(executable)) << executable;
    EXPECT_EQ(child.pid, 0);
    EXPECT_EQ(child.error.domain, "NSPOSIXErrorDomain");
    EXPECT_EQ(child.error.code, code) << child.error.description();
    EXPECT_THAT(child.error.localizedDescription, HasSubstr("start \"" + executable + "\": "));
    EXPECT_THAT(child.ends, IsEmpty());
  }
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_THAT(children(), IsEmpty());
}

TEST_F(ChildProcesses, EndIsToldOnceOnTheMainThread) {
  const FakeLauncher launcher({"--exit", "3"});
  Child child;
  std::thread::id thread;
  const ChildRequest request{launcher.executable(), {}, false};
  std::thread([&] {
    child.pid = childProcesses().start(
        request,
        [&](ChildEnd how) {
          child.ends.push_back(how);
          thread = std::this_thread::get_id();
        },
        nullptr);
  }).join();
  ASSERT_TRUE(child.waitForEnd());
  tks::test::drainFor(std::chrono::milliseconds(50));
  ASSERT_EQ(child.ends.size(), 1u);
  EXPECT_EQ(child.ends[0].how, ChildEnd::How::exited);
  EXPECT_EQ(child.ends[0].number, 3);
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(ChildProcesses, AnEndIsKnownToThoseWhoAskBeforeTheLoopTellsIt) {
  const FakeLauncher launcher({"--exit", "3"});
  const FakeLauncher other({"--wont-die"});
  Child child;
  Child running;
  ASSERT_TRUE(child.start(launcher.executable()));
  ASSERT_TRUE(running.start(other.executable()));
  std::optional<ChildEnd> end;
  ASSERT_TRUE(waitUntil([&] { return (end = childProcesses().untoldEnd(child.pid)).has_value(); }));
  EXPECT_EQ(end->how, ChildEnd::How::exited);
  EXPECT_EQ(end->number, 3);
  EXPECT_TRUE(childProcesses().untoldEnd(child.pid)) << "until it is told";
  EXPECT_FALSE(childProcesses().untoldEnd(running.pid));
  EXPECT_FALSE(childProcesses().untoldEnd(::getpid()));
  EXPECT_THAT(child.ends, IsEmpty());
  ASSERT_TRUE(child.waitForEnd());
  EXPECT_EQ(child.ends[0].number, 3);
  EXPECT_FALSE(childProcesses().untoldEnd(child.pid));
  ::kill(running.pid, SIGKILL);
  EXPECT_TRUE(running.waitForEnd());
}

TEST_F(ChildProcesses, AnEndIsKnownToAnotherThreadAsWell) {
  const FakeLauncher launcher({"--abort"});
  Child child;
  ASSERT_TRUE(child.start(launcher.executable()));
  std::thread([&] {
    EXPECT_TRUE(waitUntil([&] { return childProcesses().untoldEnd(child.pid).has_value(); }));
  }).join();
  EXPECT_TRUE(child.waitForEnd());
}

TEST_F(ChildProcesses, AnEndBySignalNamesTheSignal) {
  const FakeLauncher launcher({"--abort"});
  Child child;
  ASSERT_TRUE(child.start(launcher.executable()));
  ASSERT_TRUE(child.waitForEnd());
  EXPECT_EQ(child.ends[0].how, ChildEnd::How::killed);
  EXPECT_EQ(child.ends[0].number, SIGABRT);
}

TEST_F(ChildProcesses, AChildIsCollectedWithinASecondWhetherOrNotAnyoneAsks) {
  const FakeLauncher launcher({"--mute"});
  const ChildRequest request{launcher.executable(), {}, false};
  const std::int32_t pid = childProcesses().start(request, {}, nullptr);
  ASSERT_GT(pid, 0);
  ASSERT_EQ(::kill(pid, SIGKILL), 0);
  EXPECT_TRUE(drainUntil([&] { return ::kill(pid, 0) != 0; }, std::chrono::seconds(1)));
  EXPECT_THAT(children(), IsEmpty());
}

TEST_F(ChildProcesses, AreCollectedByLaterCallsWhenTheLoopDoesNotRun) {
  const FakeLauncher launcher({"--exit", "0"});
  const ChildRequest request{launcher.executable(), {}, false};
  for (int i = 0; i < 20; ++i) ASSERT_GT(childProcesses().start(request, {}, nullptr), 0);
  ASSERT_TRUE(waitUntil([&] { return launcher.processes().empty(); }));
  EXPECT_TRUE(waitUntil([&] {
    tks::platform::runningApplications().find(::getpid());
    return children().empty();
  }));
}

TEST_F(ChildProcesses, TheEndIsTakenFromTheProcessAndNotFromItsPipes) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher({"--fork-holder", "--exit", "0"});
  ChildRequest request{launcher.executable(), {}, true};
  bool ended = false;
  ASSERT_GT(childProcesses().start(
                request, [&](ChildEnd) { ended = true; }, nullptr),
            0);
  EXPECT_TRUE(drainUntil([&] { return ended; }, std::chrono::seconds(5)));
  EXPECT_EQ(launcher.processes().size(), 1u) << "the holder is still there";
}

TEST_F(ChildProcesses, TheEndIsNoticedWhenTheHostIgnoresItsChildren) {
  TKS_IN_FRESH_PROCESS();
  ::signal(SIGCHLD, SIG_IGN);
  const FakeLauncher launcher({"--exit", "3"});
  Child child;
  ASSERT_TRUE(child.start(launcher.executable()));
  ASSERT_TRUE(child.waitForEnd(std::chrono::seconds(1)));
  EXPECT_EQ(child.ends[0].how, ChildEnd::How::unknown);
  EXPECT_EQ(::signal(SIGCHLD, SIG_DFL), SIG_IGN);
}

TEST_F(ChildProcesses, TheEndIsNoticedWhenTheHostCollectsAllChildrenItself) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher({"--exit", "3"});
  std::atomic<bool> done = false;
  std::thread reaper([&] {
    while (!done) {
      if (::waitpid(-1, nullptr, 0) < 0) std::this_thread::yield();
    }
  });
  for (int i = 0; i < 20; ++i) {
    Child child;
    ASSERT_TRUE(child.start(launcher.executable()));
    ASSERT_TRUE(child.waitForEnd(std::chrono::seconds(5)));
    EXPECT_NE(child.ends[0].how, ChildEnd::How::killed);
  }
  done = true;
  reaper.join();
}

TEST_F(ChildProcesses, AChildSeesThreeDescriptorsHoweverManyTheHostHas) {
  TKS_IN_FRESH_PROCESS();
  if (!tks::test::holdManyDescriptors()) GTEST_SKIP() << "no room for so many descriptors";
  const FakeLauncher launcher({"--dump-descriptors", "descriptors", "--exit", "0"});
  Child child;
  ASSERT_TRUE(child.start(launcher.executable()));
  EXPECT_THAT(numbers(launcher.report("descriptors")), ElementsAre("0", "1", "2"));
}

TEST_F(ChildProcesses, AChildHasDefaultSignalsAndAnEmptyMask) {
  TKS_IN_FRESH_PROCESS();
  sigset_t mask;
  ::sigemptyset(&mask);
  ::sigaddset(&mask, SIGTERM);
  ::sigaddset(&mask, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &mask, nullptr);
  for (const int ignored : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1, SIGUSR2, SIGCHLD, SIGTSTP,
                            SIGTTIN, SIGTTOU, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF, SIGIO}) {
    ::signal(ignored, SIG_IGN);
  }
  ::signal(SIGWINCH, [](int) {});
  const FakeLauncher launcher({"--dump-signals", "signals", "--exit", "0"});
  Child child;
  ASSERT_TRUE(child.start(launcher.executable()));
  EXPECT_EQ(launcher.report("signals"), "");
}

TEST_F(ChildProcesses, AChildHasTheEnvironmentOfTheHost) {
  TKS_IN_FRESH_PROCESS();
  ::setenv("TKS_TEST_VARIABLE", "some value", 1);
  const FakeLauncher launcher({"--dump-environment", "environment", "--exit", "0"});
  Child child;
  ASSERT_TRUE(child.start(launcher.executable()));
  EXPECT_THAT(pieces(launcher.report("environment"), '\0'), ::testing::Contains("TKS_TEST_VARIABLE=some value"));
}

TEST_F(ChildProcesses, AChildSharesTheStandardHandlesOfTheHost) {
  TKS_IN_FRESH_PROCESS();
  const tks::test::TemporaryFolder folder;
  tks::test::writeFile(folder / "input", "");
  ASSERT_EQ(::dup2(::open((folder / "input").c_str(), O_RDONLY | O_CLOEXEC), 0), 0);
  const FakeLauncher launcher({"--dump-descriptors", "descriptors", "--exit", "0"});
  Child child;
  ASSERT_TRUE(child.start(launcher.executable()));
  const std::vector<std::string> lines = pieces(launcher.report("descriptors"), '\n');
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "0 " + (folder / "input"));
  EXPECT_EQ(lines[1], "1 /dev/null");
}

TEST_F(ChildProcesses, AHandleThatTheHostHasClosedIsNullInTheChild) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher({"--dump-descriptors", "descriptors", "--exit", "0"});
  ::close(0);
  ::close(1);
  ::close(2);
  Child child;
  ASSERT_TRUE(child.start(launcher.executable())) << child.error.description();
  EXPECT_EQ(launcher.report("descriptors"), "0 /dev/null\n1 /dev/null\n2 /dev/null\n");
  EXPECT_EQ(openDescriptors().count(0) + openDescriptors().count(1) + openDescriptors().count(2), 0u);
}

TEST_F(ChildProcesses, AThousandStartsLeaveNothingBehind) {
  const FakeLauncher launcher({"--exit", "0"});
  const auto cycle = [&] {
    Child child;
    ASSERT_TRUE(child.start(launcher.executable()));
    ASSERT_TRUE(child.waitForEnd());
    ASSERT_EQ(child.ends[0].how, ChildEnd::How::exited);
  };
  cycle();
  const std::set<int> descriptors = openDescriptors();
  const std::size_t threads = tks::test::threadCount();
  for (int i = 0; i < 1000; ++i) ASSERT_NO_FATAL_FAILURE(cycle());
  EXPECT_EQ(openDescriptors(), descriptors);
  EXPECT_LE(tks::test::threadCount(), threads + tks::test::kThreadsOfTheSystem);
  EXPECT_THAT(children(), IsEmpty());
}

TEST_F(ChildProcesses, StartingChangesNothingOfTheProcess) {
  TKS_IN_FRESH_PROCESS();
  const FakeLauncher launcher({"--mute"});
  const std::string before = tks::test::processFacts();
  const std::set<int> descriptors = openDescriptors();
  Child child;
  ASSERT_TRUE(child.start(launcher.executable()));
  launcher.endAll();
  ASSERT_TRUE(child.waitForEnd());
  EXPECT_FALSE(child.start("/nowhere/at/all"));
  EXPECT_EQ(tks::test::processFacts(), before);
  EXPECT_EQ(openDescriptors(), descriptors);
}

}  // namespace

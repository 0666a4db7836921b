#include "platform/system_tools.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "tests/platform/SystemToolsTest.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/ProcessState.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Tools.h"

// What every implementation of the contract promises. On macOS the tools are its own, in a session of their own, with a
// clean environment; what a tool has written is what the kernel counts of it.

namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;
using std::chrono::steady_clock;
using tks::platform::Tool;
using tks::platform::ToolRequest;
using tks::platform::ToolResult;
using tks::test::SystemTools;
using tks::test::TemporaryFolder;
using tks::test::waitUntil;

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

TEST_F(SystemTools, TheOutputAndTheExitCodeAreCollected) {
  script(Tool::unzip, "echo out; echo err >&2; exit 3");
  const ToolResult result = run(Tool::unzip);
  EXPECT_TRUE(result.started);
  EXPECT_EQ(result.output, "out\n");
  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(result.error, TKSError());
}

TEST_F(SystemTools, StandardErrorIsCollectedInsteadWhenWanted) {
  script(Tool::spctl, "echo out; echo err >&2");
  ToolRequest request{Tool::spctl, {}};
  request.collectStandardError = true;
  const ToolResult result = run(request);
  EXPECT_EQ(result.output, "err\n");
  EXPECT_EQ(result.exitCode, 0);
}

TEST_F(SystemTools, ArgumentsReachTheToolAsTheyAreAndNoShell) {
  script(Tool::unzip, "for a in \"$@\"; do printf '[%s]' \"$a\"; done");
  const std::string marker = folder / "touched";
  const std::string hostile = "-d $(touch '" + marker + "');`touch " + marker + "`.app";
  EXPECT_EQ(run(Tool::unzip, {hostile, "", "a\nb", "*"}).output, "[" + hostile + "][][a\nb][*]");
  EXPECT_FALSE(fs::exists(marker));
}

TEST_F(SystemTools, AToolReadsNothingFromTheHost) {
  TKS_IN_FRESH_PROCESS();
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  ASSERT_EQ(::dup2(pipe[0], 0), 0);
  ASSERT_EQ(::write(pipe[1], "for the host", 12), 12);
  script(Tool::unzip, "cat; echo done");
  EXPECT_EQ(run(Tool::unzip).output, "done\n");
  char text[32] = {};
  EXPECT_EQ(::read(0, text, sizeof text), 12) << "not a byte is gone";
}

TEST_F(SystemTools, AToolSeesThreeDescriptorsHoweverManyTheHostHas) {
  TKS_IN_FRESH_PROCESS();
  paths[Tool::lsof] = "/bin/ls";
  const std::string alone = run(Tool::lsof, {"/dev/fd"}).output;
  EXPECT_THAT(alone, ::testing::AnyOf("0\n1\n2\n3\n", "0\n1\n2\n3\n4\n"))
      << "ls opens the folder, that of macOS another one";
  if (!tks::test::holdManyDescriptors()) GTEST_SKIP() << "no room for so many descriptors";
  EXPECT_EQ(run(Tool::lsof, {"/dev/fd"}).output, alone);
}

TEST_F(SystemTools, AToolHasACleanEnvironment) {
  TKS_IN_FRESH_PROCESS();
  tks::test::FakeHome home;
  ::setenv("LD_PRELOAD_OF_A_TEST", "x", 1);
  ::setenv("IFS", "/", 1);
  ::setenv("TMPDIR", "/elsewhere", 1);
  ::setenv("PATH", "/elsewhere", 1);
  ::setenv("HOME", "/elsewhere", 1);
  paths[Tool::unzip] = "/usr/bin/env";
  const std::string output = run(Tool::unzip).output;
  EXPECT_THAT(output, ::testing::AnyOf(HasSubstr("LC_ALL=C.UTF-8\n"), HasSubstr("LC_ALL=en_US.UTF-8\n")));
  EXPECT_THAT(output, HasSubstr("PATH=/usr/bin:/bin:/usr/sbin:/sbin\n"));
  EXPECT_THAT(output, HasSubstr("HOME=" + home.realHome() + "\n"));
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 3) << output;
}

TEST_F(SystemTools, AToolHasDefaultSignals) {
  TKS_IN_FRESH_PROCESS();
  ::signal(SIGPIPE, SIG_IGN);
  script(Tool::lsof, "while true; do echo line; done");
  paths[Tool::shasum] = "/usr/bin/head";
  ToolRequest request{Tool::lsof, {}};
  request.pipedInto = Tool::shasum;
  request.timeLimit = seconds(20);
  const auto start = steady_clock::now();
  EXPECT_EQ(run(request).exitCode, 0);
  EXPECT_LT(steady_clock::now() - start, seconds(10)) << "the first tool ends when nobody reads it any more";
}

TEST_F(SystemTools, OutputIsReadToItsEndAndKeptUpToTheLimit) {
  script(Tool::tar, "head -c 10000000 /dev/zero | tr '\\0' x; echo finished > \"" + (folder / "end") + "\"");
  EXPECT_EQ(run(Tool::tar).output, std::string(10000000, 'x'));
  ToolRequest request{Tool::tar, {}};
  request.outputLimit = 1000;
  const ToolResult result = run(request);
  EXPECT_EQ(result.output, std::string(1000, 'x'));
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(tks::test::contentOf(folder / "end"), "finished\n");
}

TEST_F(SystemTools, WhatIsNotCollectedIsThrownAwayHoweverLongItIs) {
  script(Tool::spctl, "head -c 10000000 /dev/zero; echo verdict >&2");
  ToolRequest request{Tool::spctl, {}};
  request.collectStandardError = true;
  EXPECT_EQ(run(request).output, "verdict\n");
}

TEST_F(SystemTools, AToolIsWatchedWhileItWrites) {
  const std::string go = folder / "go";
  script(Tool::unzip,
         "printf '%5000s' x > '" + (folder / "written") + "'; until [ -e '" + go + "' ]; do sleep 0.01; done");
  ToolRequest request{Tool::unzip, {}};
  request.timeLimit = seconds(60);
  std::uint64_t most = 0;
  request.onWritten = [&](std::uint64_t bytes) {
    EXPECT_GE(bytes, most);
    most = bytes;
    if (bytes >= 5000) tks::test::writeFile(go, "");
  };
  EXPECT_EQ(run(request).exitCode, 0);
  EXPECT_GE(most, 5000u);
}

TEST_F(SystemTools, AToolThatOutlivesItsTimeIsEndedWithItsGroup) {
  const std::string note = folder / "children";
  script(Tool::unzip, "echo begun; sleep 1000 & echo $! > '" + note + "'; sleep 1000");
  ToolRequest request{Tool::unzip, {}};
  request.timeLimit = seconds(1);
  const auto start = steady_clock::now();
  const ToolResult result = run(request);
  EXPECT_LT(steady_clock::now() - start, seconds(10));
  EXPECT_TRUE(result.started);
  EXPECT_EQ(result.output, "begun\n");
  EXPECT_EQ(result.exitCode, -1);
  EXPECT_EQ(result.error.code, ETIMEDOUT);
  const pid_t grandchild = std::atoi(tks::test::contentOf(note).c_str());
  ASSERT_GT(grandchild, 0);
  EXPECT_TRUE(waitUntil([&] { return !tks::test::isRunning(grandchild); }));
  EXPECT_THAT(tks::test::children(), IsEmpty());
}

TEST_F(SystemTools, AToolThatWritesTooLongAFileIsEnded) {
  script(Tool::unzip, "exec cat /dev/zero > '" + (folder / "file") + "'");
  expectEndedForWhatItWrites(Tool::unzip);
}

TEST_F(SystemTools, AToolThatPrintsMoreThanItMayWriteIsEnded) {
  script(Tool::unzip, "exec cat /dev/zero");
  ToolRequest request{Tool::unzip, {}};
  request.writeLimit = 1000000;
  const ToolResult result = run(request);
  EXPECT_EQ(result.exitCode, -1);
  EXPECT_EQ(result.error.localizedDescription, "wait for \"the tool\": File too large");
}

TEST_F(SystemTools, AToolThatWritesTooManyBytesInAllIsEnded) {
  script(Tool::unzip, "while :; do echo 0123456789 > '" + (folder / "file") + "'; done");
  ToolRequest request{Tool::unzip, {}};
  request.writeLimit = 1000;
  const ToolResult result = run(request);
  EXPECT_EQ(result.exitCode, -1);
  EXPECT_EQ(result.error.localizedDescription, "wait for \"the tool\": File too large");
}

TEST_F(SystemTools, AToolThatStaysBelowItsLimitIsNotDisturbed) {
  script(Tool::unzip, "head -c 1000 /dev/zero > '" + (folder / "file") + "'; echo done");
  ToolRequest request{Tool::unzip, {}};
  request.writeLimit = 100000;
  const ToolResult result = run(request);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, "done\n");
  EXPECT_EQ(result.error, TKSError());
  EXPECT_EQ(fs::file_size(folder / "file"), 1000u);
}

TEST_F(SystemTools, AToolThatClosesItsOutputIsStillWaitedFor) {
  script(Tool::unzip, "echo early; exec >&- 2>&-; sleep 0.3; exit 7");
  const ToolResult result = run(Tool::unzip);
  EXPECT_EQ(result.output, "early\n");
  EXPECT_EQ(result.exitCode, 7);
}

TEST_F(SystemTools, AProcessThatAToolLeavesBehindHoldsNobodyUp) {
  script(Tool::unzip, "sleep 1000 & echo done");
  const auto start = steady_clock::now();
  const ToolResult result = run(Tool::unzip);
  EXPECT_EQ(result.output, "done\n");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_LT(steady_clock::now() - start, seconds(10));
}

TEST_F(SystemTools, AToolEndedByASignalHasNoExitCode) {
  script(Tool::unzip, "kill -SEGV $$");
  const ToolResult result = run(Tool::unzip);
  EXPECT_TRUE(result.started);
  EXPECT_EQ(result.exitCode, -1);
}

TEST_F(SystemTools, ASecondToolReadsTheOutputOfTheFirst) {
  script(Tool::lsof, "echo \"listing $1\"; echo noise >&2; exit 1");
  script(Tool::shasum, "read line; echo \"digest of $line, $# arguments\"; exit 5");
  ToolRequest request{Tool::lsof, {"path"}};
  request.pipedInto = Tool::shasum;
  const ToolResult result = run(request);
  EXPECT_EQ(result.output, "digest of listing path, 0 arguments\n");
  EXPECT_EQ(result.exitCode, 5);
}

TEST_F(SystemTools, TheSecondToolSeesTheEndOfItsInput) {
  script(Tool::lsof, "echo one; echo two");
  script(Tool::shasum, "cat; echo end");
  ToolRequest request{Tool::lsof, {}};
  request.pipedInto = Tool::shasum;
  EXPECT_EQ(run(request).output, "one\ntwo\nend\n");
}

TEST_F(SystemTools, AMissingToolIsNoOutputAndAReason) {
  ToolResult result = run(Tool::tccutil);
  EXPECT_FALSE(result.started);
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.exitCode, -1);
  EXPECT_EQ(result.error.code, ENOENT);
  EXPECT_THAT(result.error.localizedDescription, HasSubstr("tccutil"));
  paths[Tool::tccutil] = folder / "missing";
  result = run(Tool::tccutil);
  EXPECT_FALSE(result.started);
  EXPECT_EQ(result.error, (TKSError{"NSPOSIXErrorDomain", ENOENT,
                                    "run \"" + (folder / "missing") + "\": No such file or directory"}));
}

TEST_F(SystemTools, AMissingSecondToolEndsTheFirst) {
  script(Tool::lsof, "sleep 1000");
  ToolRequest request{Tool::lsof, {}};
  request.pipedInto = Tool::shasum;
  const auto start = steady_clock::now();
  EXPECT_FALSE(run(request).started);
  EXPECT_LT(steady_clock::now() - start, seconds(10));
  EXPECT_THAT(tks::test::children(), IsEmpty());
}

TEST_F(SystemTools, RunLeavesNothingBehind) {
  script(Tool::lsof, "echo x");
  script(Tool::shasum, "cat");
  ToolRequest request{Tool::lsof, {}};
  request.pipedInto = Tool::shasum;
  const std::set<int> descriptors = tks::test::openDescriptors();
  for (int i = 0; i < 50; ++i) {
    EXPECT_EQ(run(request).output, "x\n");
    run(Tool::tccutil);
  }
  EXPECT_EQ(tks::test::openDescriptors(), descriptors);
  EXPECT_THAT(tks::test::children(), IsEmpty());
}

TEST_F(SystemTools, RunFromManyThreadsAtOnce) {
  script(Tool::unzip, "echo \"$1\"");
  std::vector<std::thread> threads;
  std::atomic<int> right = 0;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 10; ++round) {
        const std::string word = std::to_string(i) + "/" + std::to_string(round);
        if (run(Tool::unzip, {word}).output == word + "\n") ++right;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(right, 80);
}

TEST_F(SystemTools, EndIsNoticedWhenTheHostIgnoresItsChildren) {
  TKS_IN_FRESH_PROCESS();
  ::signal(SIGCHLD, SIG_IGN);
  script(Tool::unzip, "echo out; exit 3");
  const auto start = steady_clock::now();
  const ToolResult result = run(Tool::unzip);
  EXPECT_LT(steady_clock::now() - start, seconds(10));
  EXPECT_TRUE(result.started);
  EXPECT_EQ(result.output, "out\n");
  EXPECT_TRUE(result.exitCode == 3 || result.exitCode == -1) << "known from newer kernels only: " << result.exitCode;
}

TEST_F(SystemTools, NoDescriptorsLeftIsAnErrorAndLeavesNothing) {
  TKS_IN_FRESH_PROCESS();
  script(Tool::unzip, "echo out");
  rlimit generous{};
  ::getrlimit(RLIMIT_NOFILE, &generous);
  const std::set<int> descriptors = tks::test::openDescriptors();
  bool worked = false;
  int failures = 0;
  for (rlim_t limit = 3; !worked && limit < 30; ++limit) {
    const rlimit tight{limit, generous.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &tight);
    const ToolResult result = run(Tool::unzip);
    ::setrlimit(RLIMIT_NOFILE, &generous);
    worked = result.started && result.output == "out\n";
    if (!worked) ++failures;
    EXPECT_EQ(tks::test::openDescriptors(), descriptors);
    EXPECT_THAT(tks::test::children(), IsEmpty());
  }
  EXPECT_TRUE(worked);
  EXPECT_GE(failures, 2);
}

TEST(StandardTools, StandAtAbsolutePaths) {
  for (const Tool tool : {Tool::unzip, Tool::tar, Tool::spctl, Tool::lsof, Tool::shasum, Tool::tccutil, Tool::sysctl}) {
    const std::string path = tks::test::standardToolPath(tool);
    EXPECT_TRUE(path.empty() || path.starts_with("/")) << path;
  }
}

TEST(StandardTools, UnpackAnArchive) {
  if (tks::test::standardToolPath(Tool::tar).empty()) GTEST_SKIP() << "no tar here";
  const TemporaryFolder folder;
  tks::test::writeFile(folder / "in/file", "content");
  fs::create_directory(folder / "out");
  ToolResult result =
      tks::platform::systemTools().run({Tool::tar, {"-cf", folder / "a.tar", "-C", folder / "in", "file"}});
  EXPECT_EQ(result.exitCode, 0);
  result = tks::platform::systemTools().run({Tool::tar, {"-tf", folder / "a.tar"}});
  EXPECT_EQ(result.output, "file\n");
  result = tks::platform::systemTools().run({Tool::tar, {"-xvf", folder / "a.tar", "-C", folder / "out"}});
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(tks::test::contentOf(folder / "out/file"), "content");
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/child_processes.h"
#include "platform/platform.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/HostLoop.h"
#include "tests/support/ProcessState.h"

// What every implementation of the contract promises to hosts with threads. On macOS posix_spawn closes in the child
// whatever it is not told to leave open, so that a descriptor opened meanwhile by another thread never gets there.

namespace {

using tks::platform::ChildEnd;

TEST(ChildProcessThreads, StartLookForAndCollectChildrenAtOnce) {
  constexpr int kThreads = 8;
  constexpr int kRounds = 10;
  const tks::test::FakeLauncher launcher({"--exit", "3"});
  std::atomic<int> started = 0;
  int ended = 0;  // main thread only
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const auto countEnd = [&ended](ChildEnd end) {
          if (end.how == ChildEnd::How::exited && end.number == 3) ++ended;
        };
        const std::int32_t pid =
            tks::platform::childProcesses().start({launcher.executable(), {}, false}, countEnd, nullptr);
        if (pid > 0) ++started;
        tks::platform::runningApplications().find(pid);
        tks::platform::childProcesses().originalStandardInput();
      }
    });
  }
  EXPECT_TRUE(tks::test::drainUntil([&] { return ended == kThreads * kRounds; }, std::chrono::seconds(60)));
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(started, kThreads * kRounds);
  EXPECT_THAT(tks::test::children(), ::testing::IsEmpty());
}

}  // namespace

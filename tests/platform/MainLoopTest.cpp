#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"

// What every implementation of the main loop promises, and TKSMainLoop to hosts. On macOS it is the main dispatch
// queue, which the main run loop empties; it has no descriptor, and whoever asks for the main thread is told by the
// queue.

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using tks::platform::MainLoop;
using tks::platform::mainLoop;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::LogRecorder;

using Timer = std::unique_ptr<MainLoop::Timer>;

constexpr milliseconds kSoon(10);
constexpr milliseconds kLate(60'000);

constexpr const char* kSecondDrain = "Main loop is being run or drained already, 'drain' does nothing.";
constexpr const char* kSecondRun = "Main loop is being run or drained already, 'run' does nothing.";

class MainLoopTest : public testing::Test {
 protected:
  ~MainLoopTest() override { drainFor(milliseconds(0)); }

  /// Whether the descriptor tells of work, where there is one.
  static void expectAnnounced(bool announced) {
    if (TKSMainLoop::descriptor() < 0) return;
    pollfd watched{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(::poll(&watched, 1, 0), announced ? 1 : 0);
  }

  /// Work that notes that it ran.
  auto noting(std::string what) {
    return [this, what = std::move(what)] { noted.push_back(what); };
  }

  std::vector<std::string> noted;
};

TEST_F(MainLoopTest, PostedWorkRunsInOrderOfPosting) {
  std::vector<int> seen;
  for (int number = 0; number < 1000; ++number) mainLoop().post([&seen, number] { seen.push_back(number); });
  ASSERT_TRUE(drainUntil([&] { return seen.size() == 1000; }));
  EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
}

TEST_F(MainLoopTest, NothingRunsBeforeTheHostDrains) {
  mainLoop().post(noting("posted"));
  std::this_thread::sleep_for(milliseconds(5));
  EXPECT_TRUE(noted.empty());
  TKSMainLoop::drain();
  EXPECT_THAT(noted, ElementsAre("posted"));
}

TEST_F(MainLoopTest, EveryThreadsWorkRunsInItsOwnOrderOnTheDrainingThread) {
  constexpr int kThreads = 4;
  constexpr int kEach = 2000;
  std::vector<std::vector<int>> seen(kThreads);
  bool elsewhere = false;
  int total = 0;
  const auto here = std::this_thread::get_id();
  std::vector<std::jthread> threads;
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int number = 0; number < kEach; ++number) {
        mainLoop().post([&, thread, number] {
          elsewhere = elsewhere || std::this_thread::get_id() != here;
          seen[thread].push_back(number);
          ++total;
        });
      }
    });
  }
  ASSERT_TRUE(drainUntil([&] { return total == kThreads * kEach; }));
  EXPECT_FALSE(elsewhere);
  for (const auto& numbers : seen) EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
}

TEST_F(MainLoopTest, WorkMayPostMoreWork) {
  mainLoop().post([this] {
    noted.push_back("first");
    mainLoop().post(noting("third"));
  });
  mainLoop().post(noting("second"));
  ASSERT_TRUE(drainUntil([&] { return noted.size() == 3; }));
  EXPECT_THAT(noted, ElementsAre("first", "second", "third"));
}

TEST_F(MainLoopTest, WorkThatPostsItselfForEverDoesNotHoldTheHostInDrain) {
  bool goOn = true;
  std::function<void()> again = [&] {
    if (goOn) mainLoop().post(again);
  };
  mainLoop().post(again);
  TKSMainLoop::drain();
  expectAnnounced(true);
  goOn = false;
  TKSMainLoop::drain();
  expectAnnounced(false);
}

TEST_F(MainLoopTest, WhatWorkThrowsIsLoggedAndTheLoopGoesOn) {
  const LogRecorder log;
  mainLoop().post([] { throw std::runtime_error("broken"); });
  mainLoop().post([] { throw 7; });
  const Timer timer = mainLoop().after(milliseconds(0), [] { throw std::runtime_error("late"); });
  mainLoop().post(noting("after"));
  ASSERT_TRUE(drainUntil([&] { return noted.size() == 1 && log.texts(8).size() == 3; }));
  EXPECT_TRUE(log.has(8, "Callback 'posted work' threw an exception: broken"));
  EXPECT_TRUE(log.has(8, "Callback 'posted work' threw an exception: unknown"));
  EXPECT_TRUE(log.has(8, "Callback 'timer' threw an exception: late"));
}

TEST_F(MainLoopTest, WhatWorkHoldsIsReleasedAsSoonAsItRan) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  bool releasedInTime = false;
  mainLoop().post([held = std::move(held)] {});
  mainLoop().post([&] { releasedInTime = watched.expired(); });
  TKSMainLoop::drain();
  EXPECT_TRUE(releasedInTime);
}

TEST_F(MainLoopTest, RunWorksUntilStopped) {
  mainLoop().post([this] {
    noted.push_back("first");
    mainLoop().post([this] {
      noted.push_back("second");
      TKSMainLoop::stop();
    });
  });
  TKSMainLoop::run();
  EXPECT_THAT(noted, ElementsAre("first", "second"));
}

TEST_F(MainLoopTest, WorkInHandIsDoneBeforeRunReturns) {
  mainLoop().post([] { TKSMainLoop::stop(); });
  mainLoop().post(noting("in hand"));
  TKSMainLoop::run();
  EXPECT_THAT(noted, ElementsAre("in hand"));
}

TEST_F(MainLoopTest, StopBeforeRunMakesTheNextRunReturnAtOnce) {
  mainLoop().post(noting("posted"));
  TKSMainLoop::stop();
  TKSMainLoop::run();
  EXPECT_TRUE(noted.empty());
  mainLoop().post([] { TKSMainLoop::stop(); });
  TKSMainLoop::run();
  EXPECT_THAT(noted, ElementsAre("posted"));
}

TEST_F(MainLoopTest, AnotherThreadStopsARunThatWaits) {
  std::atomic<bool> running = false;
  mainLoop().post([&] { running = true; });
  const std::jthread other([&] {
    tks::test::waitUntil([&] { return running.load(); });
    TKSMainLoop::stop();
  });
  TKSMainLoop::run();
  EXPECT_TRUE(running);
}

TEST_F(MainLoopTest, WorkOfAnotherThreadWakesARunThatWaits) {
  std::atomic<int> rounds = 0;
  const std::jthread other([&] {
    for (int round = 0; round < 1000; ++round) {
      mainLoop().post([&] { ++rounds; });
      tks::test::waitUntil([&] { return rounds > round; });
    }
    TKSMainLoop::stop();
  });
  TKSMainLoop::run();
  EXPECT_EQ(rounds, 1000);
}

TEST_F(MainLoopTest, WorkThatIsLeftWhenRunEndsIsAnnounced) {
  mainLoop().post([this] {
    TKSMainLoop::stop();
    mainLoop().post(noting("left"));
  });
  TKSMainLoop::run();
  expectAnnounced(true);
  TKSMainLoop::drain();
  EXPECT_THAT(noted, ElementsAre("left"));
}

TEST_F(MainLoopTest, TimerRunsOnceAndNotBeforeItsDelayIsOver) {
  const auto begin = steady_clock::now();
  milliseconds waited(0);
  int calls = 0;
  const Timer timer = mainLoop().after(milliseconds(50), [&] {
    ++calls;
    waited = std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
  });
  ASSERT_TRUE(drainUntil([&] { return calls > 0; }));
  drainFor(milliseconds(120));
  EXPECT_EQ(calls, 1);
  EXPECT_GE(waited, milliseconds(50));
}

TEST_F(MainLoopTest, TimersRunInOrderOfTheirDeadlines) {
  const Timer late = mainLoop().after(milliseconds(30), noting("30"));
  const Timer early = mainLoop().after(milliseconds(10), noting("10"));
  const Timer now = mainLoop().after(milliseconds(-5), noting("past"));
  const Timer same = mainLoop().after(milliseconds(20), noting("20"));
  ASSERT_TRUE(drainUntil([&] { return noted.size() == 4; }));
  EXPECT_THAT(noted, ElementsAre("past", "10", "20", "30"));
}

TEST_F(MainLoopTest, TimerRunsInsideRunAsWell) {
  const Timer timer = mainLoop().after(kSoon, [] { TKSMainLoop::stop(); });
  TKSMainLoop::run();
}

TEST_F(MainLoopTest, DestroyedTimerDoesNotRun) {
  Timer timer = mainLoop().after(kSoon, noting("cancelled"));
  timer.reset();
  const Timer kept = mainLoop().after(3 * kSoon, noting("kept"));
  ASSERT_TRUE(drainUntil([&] { return !noted.empty(); }));
  EXPECT_THAT(noted, ElementsAre("kept"));
}

TEST_F(MainLoopTest, DestroyedTimerReleasesWhatItsWorkHolds) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  Timer timer = mainLoop().after(kLate, [held = std::move(held)] {});
  timer.reset();
  EXPECT_TRUE(watched.expired());
}

TEST_F(MainLoopTest, TimerDestroyedByAnotherThatIsDueWithItDoesNotRun) {
  Timer second;
  const Timer first = mainLoop().after(kSoon, [&] {
    noted.push_back("first");
    second.reset();
  });
  second = mainLoop().after(kSoon, noting("second"));
  std::this_thread::sleep_for(2 * kSoon);
  TKSMainLoop::drain();
  EXPECT_THAT(noted, ElementsAre("first"));
}

TEST_F(MainLoopTest, TimerMayDestroyAndReplaceItself) {
  Timer timer;
  int calls = 0;
  std::function<void()> again = [&] {
    if (++calls < 5) timer = mainLoop().after(milliseconds(1), again);
  };
  timer = mainLoop().after(milliseconds(1), again);
  ASSERT_TRUE(drainUntil([&] { return calls == 5; }));
}

TEST_F(MainLoopTest, DelaysBeyondAllTimeAreTaken) {
  const Timer timer = mainLoop().after(milliseconds::max(), noting("never"));
  drainFor(milliseconds(20));
  EXPECT_TRUE(noted.empty());
}

TEST_F(MainLoopTest, TimersOfOtherThreadsAreSetAndCancelledWithoutHarm) {
  std::atomic<int> ran = 0;
  std::atomic<int> threadsLeft = 4;
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      std::vector<Timer> kept;
      for (int number = 0; number < 250; ++number) {
        kept.push_back(mainLoop().after(milliseconds(number % 3), [&] { ++ran; }));
        Timer cancelled = mainLoop().after(kLate, [] { FAIL(); });
      }
      tks::test::waitUntil([&] { return ran == 1000; });
      --threadsLeft;
    });
  }
  EXPECT_TRUE(drainUntil([&] { return threadsLeft == 0; }));
  EXPECT_EQ(ran, 1000);
}

// A host that does it wrong

TEST_F(MainLoopTest, DrainInsideWorkIsRefusedWithALine) {
  const LogRecorder log;
  mainLoop().post([this] {
    mainLoop().post(noting("inner"));
    TKSMainLoop::drain();
    EXPECT_TRUE(noted.empty());
  });
  TKSMainLoop::drain();
  ASSERT_TRUE(drainUntil([&] { return noted.size() == 1; }));
  EXPECT_THAT(log.texts(8), ElementsAre(kSecondDrain));
}

TEST_F(MainLoopTest, RunInsideWorkIsRefusedWithALine) {
  const LogRecorder log;
  mainLoop().post([] { TKSMainLoop::run(); });
  TKSMainLoop::drain();
  EXPECT_THAT(log.texts(8), ElementsAre(kSecondRun));
}

TEST_F(MainLoopTest, ThousandCyclesLeaveTheDescriptorsAsTheyWere) {
  mainLoop().post(noting("first use"));
  TKSMainLoop::drain();
  const auto before = tks::test::openDescriptors();
  for (int cycle = 0; cycle < 1000; ++cycle) {
    mainLoop().post([] { TKSMainLoop::stop(); });
    const Timer timer = mainLoop().after(milliseconds(cycle % 2), [] {});
    TKSMainLoop::run();
  }
  EXPECT_EQ(tks::test::openDescriptors(), before);
}

}  // namespace

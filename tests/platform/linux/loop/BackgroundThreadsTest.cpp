#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "platform/platform.h"
#include "tests/support/Gate.h"
#include "tests/support/HostLoop.h"
#include "tests/support/InjectedSystemCall.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"

// The threads of the pool that does background work here.

namespace {

using tks::gnulinux::SystemCalls;
using tks::platform::backgroundWork;
using tks::test::Gate;
using tks::test::InjectedSystemCall;
using tks::test::LogRecorder;
using tks::test::waitUntil;

/// How many threads of the pool there are. Other libraries, a sanitizer's for example, have threads of their own.
std::size_t poolThreads() {
  std::size_t found = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream file(thread.path() / "comm");
    std::string name;
    if (std::getline(file, name) && name == "tksinterface") ++found;
  }
  return found;
}

TEST(BackgroundWork, AllSignalsAreBlockedOnItsThreads) {
  std::atomic<bool> ran = false;
  sigset_t mask;
  ::sigemptyset(&mask);
  backgroundWork().submit([&] {
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    ran = true;
  });
  ASSERT_TRUE(waitUntil([&] { return ran.load(); }));
  for (const int number : {SIGINT, SIGTERM, SIGCHLD, SIGALRM, SIGPIPE, SIGHUP, SIGUSR1, SIGPROF}) {
    EXPECT_EQ(::sigismember(&mask, number), 1) << number;
  }
}

TEST(BackgroundWork, ThreadsAreBoundedAndWhatIsBeyondThemWaits) {
  auto gate = std::make_shared<Gate>();
  auto ran = std::make_shared<std::atomic<int>>(0);
  for (int number = 0; number < 500; ++number) {
    backgroundWork().submit([gate, ran] {
      gate->wait();
      ++*ran;
    });
  }
  ASSERT_TRUE(waitUntil([&] { return gate->waiting() == 64; }));
  EXPECT_LE(poolThreads(), 64u);
  gate->open();
  EXPECT_TRUE(waitUntil([&] { return *ran == 500; }));
}

TEST(BackgroundWork, OneThreadDoesManySmallPiecesOfWork) {
  std::atomic<int> ran = 0;
  std::atomic<bool> ready = false;
  backgroundWork().submit([&] { ready = true; });
  ASSERT_TRUE(waitUntil([&] { return ready.load(); }));
  const std::size_t before = poolThreads();
  for (int number = 0; number < 200; ++number) {
    backgroundWork().submit([&] { ++ran; });
    ASSERT_TRUE(waitUntil([&] { return ran == number + 1; }));
  }
  EXPECT_LE(poolThreads(), before + 1);
}

TEST(BackgroundWork, ThreadsEndWhenThereIsNothingToDo) {
  std::atomic<int> ran = 0;
  for (int number = 0; number < 8; ++number) backgroundWork().submit([&] { ++ran; });
  ASSERT_TRUE(waitUntil([&] { return ran == 8; }));
  EXPECT_TRUE(waitUntil([] { return poolThreads() == 0; }));
}

/// No further thread is made for a scope.
class NoMoreThreads {
  InjectedSystemCall<decltype(SystemCalls::threadCreate)> refused_{
      &SystemCalls::threadCreate, [](pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) { return EAGAIN; }};
};

TEST(BackgroundWork, WithoutAnyThreadIsRefusedAtOnceAndLeftToTheCaller) {
  ASSERT_TRUE(waitUntil([] { return poolThreads() == 0; }));
  const LogRecorder log;
  std::atomic<int> ran = 0;
  std::function<void()> work = [&] { ++ran; };
  {
    const NoMoreThreads refused;
    EXPECT_FALSE(backgroundWork().submit(std::move(work)));
  }
  EXPECT_TRUE(log.has(8, "Cannot start a thread for background work: Resource temporarily unavailable"));
  ASSERT_TRUE(work);  // NOLINT(bugprone-use-after-move): nobody took it
  EXPECT_TRUE(backgroundWork().submit(std::move(work)));
  EXPECT_TRUE(waitUntil([&] { return ran == 1; }));
  tks::test::drainFor(std::chrono::milliseconds(100));
  EXPECT_EQ(ran, 1);
}

TEST(BackgroundWork, IsDoneByAnIdleThreadWhenNoFurtherOneIsToBeHad) {
  auto gate = std::make_shared<Gate>();
  std::atomic<bool> ready = false;
  ASSERT_TRUE(backgroundWork().submit([gate] { gate->wait(); }));
  ASSERT_TRUE(backgroundWork().submit([&] { ready = true; }));
  ASSERT_TRUE(waitUntil([&] { return ready.load(); }));
  const NoMoreThreads refused;
  std::atomic<bool> ran = false;
  // The idle one may need a moment to be idle.
  EXPECT_TRUE(waitUntil([&] { return backgroundWork().submit([&] { ran = true; }); }));
  EXPECT_TRUE(waitUntil([&] { return ran.load(); }));
  gate->open();
}

TEST(BackgroundWork, DoesNotQueueBehindBusyThreads) {
  ASSERT_TRUE(waitUntil([] { return poolThreads() == 0; }));
  auto gate = std::make_shared<Gate>();
  ASSERT_TRUE(backgroundWork().submit([gate] { gate->wait(); }));
  ASSERT_TRUE(waitUntil([&] { return gate->waiting() == 1; }));
  {
    const NoMoreThreads refused;
    EXPECT_FALSE(backgroundWork().submit([] {})) << "whoever waits for it would wait for somebody else's work";
  }
  gate->open();
  EXPECT_TRUE(waitUntil([&] { return gate->waiting() == 0; }));
}

}  // namespace

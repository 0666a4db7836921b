#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/platform.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"

// Any thread may drain here, one at a time; elsewhere the main loop belongs to the thread that the process began with.

namespace {

using testing::ElementsAre;
using tks::platform::mainLoop;
using tks::test::drainUntil;
using tks::test::LogRecorder;

constexpr const char* kSecondDrain = "Main loop is being run or drained already, 'drain' does nothing.";

TEST(DrainingThreads, ASecondOneMeanwhileIsRefusedWithALine) {
  const LogRecorder log;
  std::atomic<bool> inside = false;
  std::atomic<bool> letGo = false;
  mainLoop().post([&] {
    inside = true;
    tks::test::waitUntil([&] { return letGo.load(); });
  });
  std::jthread other([] { TKSMainLoop::drain(); });
  ASSERT_TRUE(tks::test::waitUntil([&] { return inside.load(); }));
  bool noted = false;
  mainLoop().post([&] { noted = true; });
  TKSMainLoop::drain();
  EXPECT_FALSE(noted);
  EXPECT_THAT(log.texts(8), ElementsAre(kSecondDrain));
  letGo = true;
  other.join();
  ASSERT_TRUE(drainUntil([&] { return noted; }));
}

TEST(DrainingThreads, LoseNothingWhenTwoDrainAtOnce) {
  constexpr int kWork = 20'000;
  std::atomic<int> ran = 0;
  std::atomic<int> inside = 0;
  std::atomic<bool> overlapped = false;
  const auto drainAll = [&] {
    while (ran < kWork) TKSMainLoop::drain();
  };
  std::jthread first(drainAll);
  std::jthread second(drainAll);
  for (int number = 0; number < kWork; ++number) {
    mainLoop().post([&] {
      if (inside.fetch_add(1) != 0) overlapped = true;
      inside.fetch_sub(1);
      ++ran;
    });
  }
  EXPECT_TRUE(tks::test::waitUntil([&] { return ran == kWork; }, std::chrono::seconds(30)));
  EXPECT_FALSE(overlapped);
}

}  // namespace

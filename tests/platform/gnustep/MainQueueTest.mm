#include <gtest/gtest.h>

#include <atomic>

#include "platform/platform.h"
#include "tests/platform/gnustep/dispatch.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"

// The main loop of a host that has called dispatch_main().

namespace {

using tks::platform::mainLoop;
using tks::test::waitUntil;

TEST(MainQueue, IsAskedAndNotTheThread) {
  EXPECT_TRUE(mainLoop().isMainThread()) << "also before the queue's first work";
  const tks::gnustep::MainQueueElsewhere elsewhere;
  EXPECT_FALSE(mainLoop().isMainThread()) << "the main thread is none of the queue's any more";
  std::atomic<int> insideOfWork = -1;
  std::atomic<int> insideOfTimer = -1;
  mainLoop().post([&] { insideOfWork = mainLoop().isMainThread() ? 1 : 0; });
  const auto timer =
      mainLoop().after(std::chrono::milliseconds(1), [&] { insideOfTimer = mainLoop().isMainThread() ? 1 : 0; });
  EXPECT_TRUE(waitUntil([&] { return insideOfWork >= 0 && insideOfTimer >= 0; }));
  EXPECT_EQ(insideOfWork, 1);
  EXPECT_EQ(insideOfTimer, 1);
}

TEST(MainQueue, BackgroundWorkIsNotItsWork) {
  std::atomic<int> inside = -1;
  ASSERT_TRUE(tks::platform::backgroundWork().submit([&] { inside = mainLoop().isMainThread() ? 1 : 0; }));
  EXPECT_TRUE(waitUntil([&] { return inside >= 0; }));
  EXPECT_EQ(inside, 0);
}

TEST(MainQueue, CannotBeRunOrDrainedWhereNoMainRunLoopIs) {
  const tks::test::LogRecorder log;
  const tks::gnustep::MainQueueElsewhere elsewhere;
  std::atomic<bool> isDone = false;
  mainLoop().post([&] {
    mainLoop().run();
    mainLoop().drain();
    isDone = true;
  });
  EXPECT_TRUE(waitUntil([&] { return isDone.load(); }));
  EXPECT_TRUE(log.has(8, "Main loop belongs to the main thread, 'run' does nothing elsewhere."));
  EXPECT_TRUE(log.has(8, "Main loop belongs to the main thread, 'drain' does nothing elsewhere."));
}

}  // namespace

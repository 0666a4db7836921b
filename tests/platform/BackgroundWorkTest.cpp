#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "tests/support/Gate.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/ProcessState.h"

// What every implementation of the contract promises. On macOS the work is done on the global dispatch queue, whose
// threads are the system's, as many as it likes, and block signals.

namespace {

using tks::platform::backgroundWork;
using tks::test::Gate;
using tks::test::LogRecorder;
using tks::test::waitUntil;

TEST(BackgroundWork, RunsOnAnotherThread) {
  std::atomic<bool> ran = false;
  std::thread::id there;
  backgroundWork().submit([&] {
    there = std::this_thread::get_id();
    ran = true;
  });
  ASSERT_TRUE(waitUntil([&] { return ran.load(); }));
  EXPECT_NE(there, std::this_thread::get_id());
}

TEST(BackgroundWork, SubmittingLeavesTheMaskOfTheCallerAlone) {
  sigset_t before;
  sigset_t after;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
  std::atomic<bool> ran = false;
  backgroundWork().submit([&] { ran = true; });
  ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
  for (int number = 1; number < 32; ++number) {
    EXPECT_EQ(::sigismember(&before, number), ::sigismember(&after, number)) << number;
  }
  ASSERT_TRUE(waitUntil([&] { return ran.load(); }));
}

TEST(BackgroundWork, WorkThatWaitsLongHoldsNobodyUp) {
  auto gate = std::make_shared<Gate>();
  for (int number = 0; number < 40; ++number) backgroundWork().submit([gate] { gate->wait(); });
  ASSERT_TRUE(waitUntil([&] { return gate->waiting() == 40; }));
  std::atomic<bool> ran = false;
  backgroundWork().submit([&] { ran = true; });
  EXPECT_TRUE(waitUntil([&] { return ran.load(); }));
  gate->open();
  EXPECT_TRUE(waitUntil([&] { return gate->waiting() == 0; }));
}

TEST(BackgroundWork, WhatWorkThrowsIsLoggedAndTheOthersRun) {
  const LogRecorder log;
  std::atomic<bool> ran = false;
  backgroundWork().submit([] { throw std::runtime_error("broken"); });
  ASSERT_TRUE(log.waitFor(8, "Callback 'background work' threw an exception: broken"));
  backgroundWork().submit([&] { ran = true; });
  EXPECT_TRUE(waitUntil([&] { return ran.load(); }));
}

TEST(BackgroundWork, WorkMaySubmitMoreWork) {
  std::atomic<int> ran = 0;
  backgroundWork().submit([&] {
    ++ran;
    backgroundWork().submit([&] { ++ran; });
  });
  EXPECT_TRUE(waitUntil([&] { return ran == 2; }));
}

}  // namespace

#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.h"

namespace tks::test {

/// A clock on which nobody waits: a sleep is noted, and passes in the time that it tells. For a scope; any thread.
class FakeClock final : public platform::Clock {
 public:
  /// Called on the thread that sleeps; to be set before anybody does.
  std::function<void()> onSleep;

  std::string localTimestamp() override { return "0315142233045"; }
  double secondsSince1970() override {
    const std::scoped_lock lock(mutex_);
    std::chrono::duration<double> slept{};
    for (const std::chrono::microseconds one : sleeps_) slept += one;
    return replaced_.before().secondsSince1970() + slept.count();
  }
  void sleep(std::chrono::microseconds duration) override {
    {
      const std::scoped_lock lock(mutex_);
      sleeps_.push_back(duration);
      if (std::this_thread::get_id() == mainThread_) ++sleepsOnMainThread_;
    }
    if (onSleep) onSleep();
  }

  std::vector<std::chrono::microseconds> sleeps() const {
    const std::scoped_lock lock(mutex_);
    return sleeps_;
  }
  /// Those on the thread that made the clock.
  int sleepsOnMainThread() const {
    const std::scoped_lock lock(mutex_);
    return sleepsOnMainThread_;
  }

 private:
  const std::thread::id mainThread_ = std::this_thread::get_id();
  mutable std::mutex mutex_;
  std::vector<std::chrono::microseconds> sleeps_;
  int sleepsOnMainThread_ = 0;
  platform::Replaced<platform::Clock> replaced_{*this};
};

/// A clock that waits a hundredth of the time, for a scope.
class QuickClock final : public platform::Clock {
 public:
  std::string localTimestamp() override { return replaced_.before().localTimestamp(); }
  double secondsSince1970() override { return replaced_.before().secondsSince1970(); }
  void sleep(std::chrono::microseconds duration) override { replaced_.before().sleep(duration / 100); }

 private:
  platform::Replaced<platform::Clock> replaced_{*this};
};

}  // namespace tks::test

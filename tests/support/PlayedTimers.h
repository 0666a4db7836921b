#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "platform/platform.h"

namespace tks::test {

/// The main loop with a clock of the test's own: timers ring when the test lets time pass, and never else. For a scope;
/// main thread only.
class PlayedTimers final : public platform::MainLoop {
 public:
  void post(std::function<void()> work) override { replaced_.before().post(std::move(work)); }
  std::unique_ptr<Timer> after(std::chrono::milliseconds delay, std::function<void()> work) override {
    const std::uint64_t number = ++made_;
    timers_->emplace(number, Pending{now_ + delay, std::move(work)});
    return std::make_unique<PlayedTimer>(timers_, number);
  }
  bool isMainThread() override { return replaced_.before().isMainThread(); }
  void run() override { replaced_.before().run(); }
  void stop() override { replaced_.before().stop(); }
  int descriptor() override { return replaced_.before().descriptor(); }
  void drain() override { replaced_.before().drain(); }

  /// So much time passes; what is due rings in its order.
  void pass(std::chrono::milliseconds time) {
    const auto end = now_ + time;
    while (true) {
      const auto next = std::ranges::min_element(*timers_, {}, [](const auto& entry) { return entry.second.due; });
      if (next == timers_->end() || next->second.due > end) break;
      now_ = next->second.due;
      const auto work = std::move(next->second.work);
      timers_->erase(next);
      work();
    }
    now_ = end;
  }
  /// Timers that have still to ring.
  std::size_t pending() const { return timers_->size(); }

 private:
  struct Pending {
    std::chrono::milliseconds due;
    std::function<void()> work;
  };
  using Timers = std::map<std::uint64_t, Pending>;
  class PlayedTimer final : public Timer {
   public:
    PlayedTimer(std::shared_ptr<Timers> timers, std::uint64_t number) : timers_(std::move(timers)), number_(number) {}
    ~PlayedTimer() override { timers_->erase(number_); }

   private:
    const std::shared_ptr<Timers> timers_;
    const std::uint64_t number_;
  };

  const std::shared_ptr<Timers> timers_ = std::make_shared<Timers>();
  std::chrono::milliseconds now_{0};
  std::uint64_t made_ = 0;
  platform::Replaced<platform::MainLoop> replaced_{*this};
};

}  // namespace tks::test

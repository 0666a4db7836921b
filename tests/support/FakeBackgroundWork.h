#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <utility>

#include "platform/platform.h"

namespace tks::test {

// The doubles of background work.

/// Background work as it is, counted: a test can wait until nothing of it is left that would use what the test replaces
/// and takes away.
class CountedBackgroundWork final : public platform::BackgroundWork {
 public:
  bool submit(std::function<void()>&& work) override {
    ++*left_;
    const bool accepted = replaced_.before().submit([left = left_, work]() mutable {
      // What the work holds may call something too: it goes before the work counts as done.
      std::exchange(work, nullptr)();
      --*left;
    });
    if (!accepted) --*left_;
    return accepted;
  }
  bool isIdle() const { return *left_ == 0; }

 private:
  std::shared_ptr<std::atomic<int>> left_ = std::make_shared<std::atomic<int>>(0);
  platform::Replaced<platform::BackgroundWork> replaced_{*this};
};

/// Work for the background that waits until the test lets it be done, on the test's own thread.
class PlayedBackground final : public platform::BackgroundWork {
 public:
  std::deque<std::function<void()>> queue;

  bool submit(std::function<void()>&& work) override {
    queue.push_back(std::move(work));
    return true;
  }
  void doNext() {
    const std::function<void()> work = std::move(queue.front());
    queue.pop_front();
    work();
  }
  void doAll() {
    while (!queue.empty()) doNext();
  }

 private:
  platform::Replaced<platform::BackgroundWork> replaced_{*this};
};

/// No thread for anything, for a scope.
class NoThreads final : public platform::BackgroundWork {
 public:
  bool submit(std::function<void()>&&) override { return false; }

 private:
  platform::Replaced<platform::BackgroundWork> replaced_{*this};
};

}  // namespace tks::test

#pragma once

#include <deque>
#include <functional>
#include <utility>

#include "platform/platform.h"

namespace tks::test {

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

}  // namespace tks::test

#pragma once

#include <condition_variable>
#include <mutex>

namespace tks::test {

/// A gate at which work waits until the test opens it.
class Gate {
 public:
  void open() {
    const std::scoped_lock lock(mutex_);
    open_ = true;
    opened_.notify_all();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    opened_.wait(lock, [&] { return open_; });
    --waiting_;
  }
  int waiting() {
    const std::scoped_lock lock(mutex_);
    return waiting_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
  int waiting_ = 0;
};

}  // namespace tks::test

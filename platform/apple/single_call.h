#pragma once

#include <functional>
#include <mutex>
#include <utility>

#include "foundation/logging/Logging.h"

namespace tks::platform::apple {

/// Work that is done once at most. It is taken when the system calls, or when the one who asked for it goes, whatever
/// comes first; what it holds is released at once then, while libdispatch lets go of its handlers later. Any thread.
class SingleCall {
 public:
  explicit SingleCall(std::function<void()> work) : work_(std::move(work)) {}

  /// The work; empty when it was taken before.
  std::function<void()> take() {
    const std::lock_guard lock(mutex_);
    return tks::take(work_);
  }

 private:
  std::mutex mutex_;
  std::function<void()> work_;
};

}  // namespace tks::platform::apple

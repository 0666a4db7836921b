#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

#include "foundation/logging/Logging.h"
#include "platform/backend.h"
#include "platform/linux/loop/worker_thread.h"
#include "platform/main_loop.h"
#include "platform/posix/forked_copy.h"
#include "platform/posix/posix_error.h"

namespace tks::platform {
namespace {

/// Work waits, rather than computes: a launch polls for up to 30 s, a tool runs for minutes. So there are threads for
/// far more work than there are processors; nobody should wait for somebody else's launcher.
constexpr std::size_t kMostThreads = 64;
constexpr std::chrono::seconds kIdleBeforeEnd(2);

/// Threads that come with demand and go when idle. Lives as long as the process.
class ThreadPool final : public BackgroundWork {
 public:
  bool submit(std::function<void()>&& work) override {
    if (posix::isForkedCopy()) return false;  // the threads stayed in the other process
    int refused = 0;
    {
      const std::scoped_lock lock(mutex_);
      if (waiting_.size() >= threads_ - busy_ && threads_ < kMostThreads) refused = startThread();
      if (refused == 0) waiting_.push_back(std::move(work));
    }
    if (refused != 0) {
      TKSILog::logWithLevel(TKSILogLevelError, "Cannot start a thread for background work: %@",
                            posix::reasonText(refused));
      return false;
    }
    arrived_.notify_one();
    return true;
  }

 private:
  /// Returns 0 or an error number.
  int startThread() {
    const int refused = gnulinux::startWorkerThread([this] { workUntilIdle(); });
    if (refused == 0) ++threads_;
    return refused;
  }

  void workUntilIdle() {
    std::unique_lock lock(mutex_);
    while (arrived_.wait_for(lock, kIdleBeforeEnd, [this] { return !waiting_.empty(); })) {
      std::function<void()> work = std::move(waiting_.front());
      waiting_.pop_front();
      ++busy_;
      lock.unlock();
      callHost("background work", take(work));
      lock.lock();
      --busy_;
    }
    --threads_;
  }

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::function<void()>> waiting_;
  std::size_t threads_ = 0;
  std::size_t busy_ = 0;
};

}  // namespace

template <>
BackgroundWork& backend<BackgroundWork>() {
  static auto& pool = *new ThreadPool;
  return pool;
}

}  // namespace tks::platform

#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

namespace tks {

/// A callback that a host installs for the whole process, called and replaced from any thread. Its lock is held only
/// while the pointer is copied, never while the callback runs or is destroyed. Make it live as long as the process: it
/// may still be called while static objects are destroyed.
template <class Callback>
class InstalledCallback {
 public:
  using Shared = std::shared_ptr<const Callback>;

  /// The callback, alive for as long as the caller keeps it; null when there is none.
  Shared get() {
    const std::scoped_lock lock(mutex_);
    return callback_;
  }

  /// A copy for the host; empty when there is none.
  Callback copy() {
    const Shared callback = get();
    return callback ? *callback : Callback();
  }

  /// Replaces it; `isInstalled` says from now on whether there is one.
  void set(Callback callback, std::atomic<bool>& isInstalled) {
    Shared shared = callback ? std::make_shared<const Callback>(std::move(callback)) : nullptr;
    const std::scoped_lock lock(mutex_);
    isInstalled.store(shared != nullptr, std::memory_order_relaxed);
    // What was installed before is released with the variable, after the lock.
    callback_.swap(shared);
  }

 private:
  std::mutex mutex_;
  Shared callback_;
};

/// Serves a callback that causes its own call eight deep and no deeper. One for each level, on one thread.
class CallDepth {
 public:
  explicit CallDepth(int& depth) : depth_(++depth) {}
  ~CallDepth() { --depth_; }
  CallDepth(const CallDepth&) = delete;
  CallDepth& operator=(const CallDepth&) = delete;

  bool isServed() const { return depth_ <= kDeepest; }

 private:
  static constexpr int kDeepest = 8;
  int& depth_;
};

}  // namespace tks

#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace tks::platform {

/// The main queue of the process. macOS: libdispatch's main queue and the main run loop. Linux: one epoll descriptor.
/// `post` and `after` may be called from any thread; work runs in order of posting, on the thread that runs or drains
/// the loop. In a copy of the process, made by fork without exec, nothing is taken and nothing runs. What work throws
/// is caught and logged at level 8; the loop goes on.
class MainLoop {
 public:
  /// A pending timer: destroying it on the loop's thread cancels it; from another thread it may just be running.
  class Timer {
   public:
    virtual ~Timer() = default;
  };

  virtual ~MainLoop() = default;

  /// Runs `work` once on the main thread, soon.
  virtual void post(std::function<void()> work) = 0;
  /// Runs `work` once on the main thread, not before `delay` is over (by a clock that no clock change touches).
  [[nodiscard]] virtual std::unique_ptr<Timer> after(std::chrono::milliseconds delay, std::function<void()> work) = 0;

  /// Whether the caller is where posted work runs. macOS: on the main queue, whatever thread that runs on (after
  /// dispatch_main() no longer on the main one). Linux: the thread that ran or drained the loop last, or does so now;
  /// before the first time, the thread that the process began with. Any thread.
  virtual bool isMainThread() = 0;

  /// See TKSMainLoop, which says the same to hosts.
  virtual void run() = 0;
  virtual void stop() = 0;
  virtual int descriptor() = 0;
  virtual void drain() = 0;
};

/// Work off the main thread. macOS: the global queue of default priority. Linux: a small pool whose threads block all
/// signals, grow with demand and end when idle. Any thread. What work throws is caught and logged at level 8.
class BackgroundWork {
 public:
  virtual ~BackgroundWork() = default;
  /// False, with a line of level 8, when there is no thread for it and none to be had: `work` is left as it is and
  /// never runs. Nobody is kept waiting for a thread that may never come. Always true on macOS. In a copy of the
  /// process, made by fork, false.
  virtual bool submit(std::function<void()>&& work) = 0;
};

}  // namespace tks::platform

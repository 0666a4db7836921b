#import <Foundation/Foundation.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <utility>

#include <tksinterface/TKSILog.h>

#include "platform/apple/guarded.h"
#include "platform/apple/single_call.h"
#include "platform/backend.h"
#include "platform/main_loop.h"
#include "platform/posix/forked_copy.h"

namespace tks::platform {
namespace {

using apple::runGuarded;
using apple::SingleCall;

/// A dispatch timer that fires once.
class AppleTimer final : public MainLoop::Timer {
 public:
  AppleTimer(std::chrono::milliseconds delay, std::function<void()> work)
      : work_(std::make_shared<SingleCall>(std::move(work))),
        source_(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_main_queue())) {
    const std::chrono::nanoseconds wait =
        std::clamp<std::chrono::milliseconds>(delay, std::chrono::milliseconds(0), kLongestDelay);
    dispatch_source_set_timer(source_, dispatch_time(DISPATCH_TIME_NOW, wait.count()), DISPATCH_TIME_FOREVER, 0);
    dispatch_source_t source = source_;
    const std::shared_ptr<SingleCall> pending = work_;
    dispatch_source_set_event_handler(source_, ^{
      dispatch_source_cancel(source);
      runGuarded("timer", pending->take());
    });
    dispatch_resume(source_);
  }
  ~AppleTimer() override {
    dispatch_source_cancel(source_);
    work_->take();
  }

 private:
  /// What is later never comes; in nanoseconds it would not fit.
  static constexpr std::chrono::hours kLongestDelay{24 * 365 * 100};

  std::shared_ptr<SingleCall> work_;
  dispatch_source_t source_;
};

/// Whether the caller is work of the main queue. The queue is asked, not the thread: in a host that has called
/// dispatch_main() the main queue's work runs on whatever thread the system takes, and no thread is the main one.
/// Before that, the main thread counts as the main queue's also outside of its work, for example in a run loop's timer.
bool isOnMainQueue() {
  static const char key = 0;
  static const bool isMarked = [] {
    dispatch_queue_set_specific(dispatch_get_main_queue(), &key, const_cast<char*>(&key), nullptr);
    return true;
  }();
  return isMarked && dispatch_get_specific(&key) == &key;
}

/// Whether the caller could run the main run loop, which there is no more after dispatch_main().
bool hasMainRunLoop() { return CFRunLoopGetCurrent() == CFRunLoopGetMain(); }

class AppleMainLoop final : public MainLoop {
 public:
  void post(std::function<void()> work) override {
    if (posix::isForkedCopy()) return;
    posix::claimProcess();
    dispatch_async(dispatch_get_main_queue(), ^{
      runGuarded("posted work", work);
    });
  }

  std::unique_ptr<Timer> after(std::chrono::milliseconds delay, std::function<void()> work) override {
    if (posix::isForkedCopy()) return nullptr;
    posix::claimProcess();
    return std::make_unique<AppleTimer>(delay, std::move(work));
  }

  bool isMainThread() override { return isOnMainQueue(); }

  void run() override {
    if (!enter("run")) return;
    while (!stopped_.exchange(false)) {
      @autoreleasepool {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1.0e10, /*returnAfterSourceHandled=*/true);
      }
    }
    working_ = false;
  }

  void stop() override {
    if (posix::refusesAsForkedCopy("stop")) return;
    stopped_ = true;
    // Wakes `run`, also when it is just about to wait. A host's own run of the loop goes on.
    dispatch_async(dispatch_get_main_queue(), ^{
                   });
  }

  /// The main run loop has no descriptor of its own; hosts on macOS run it anyway.
  int descriptor() override { return -1; }

  void drain() override {
    if (!enter("drain")) return;
    // What is posted from now on is left for the next call.
    __block bool isDone = false;
    dispatch_async(dispatch_get_main_queue(), ^{
      isDone = true;
    });
    for (int turn = 0; !isDone && turn < kMostTurns; ++turn) {
      @autoreleasepool {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, /*returnAfterSourceHandled=*/true);
      }
    }
    working_ = false;
  }

 private:
  /// Turns of the run loop may go to other things than the main queue, and inside of the main queue's work none does.
  static constexpr int kMostTurns = 100;

  bool enter(const char* what) {
    if (posix::refusesAsForkedCopy(what)) return false;
    if (!hasMainRunLoop()) {
      TKSILog::logWithLevel(TKSILogLevelError, "Main loop belongs to the main thread, '%@' does nothing elsewhere.",
                            what);
      return false;
    }
    if (!working_.exchange(true)) return true;
    TKSILog::logWithLevel(TKSILogLevelError, "Main loop is being run or drained already, '%@' does nothing.", what);
    return false;
  }

  std::atomic<bool> working_ = false;
  std::atomic<bool> stopped_ = false;
};

class AppleBackgroundWork final : public BackgroundWork {
 public:
  bool submit(std::function<void()>&& work) override {
    if (posix::isForkedCopy()) return false;
    const std::function<void()> accepted = std::move(work);
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
      runGuarded("background work", accepted);
    });
    return true;
  }
};

}  // namespace

template <>
MainLoop& backend<MainLoop>() {
  static auto& loop = *new AppleMainLoop;
  return loop;
}

template <>
BackgroundWork& backend<BackgroundWork>() {
  static auto& work = *new AppleBackgroundWork;
  return work;
}

}  // namespace tks::platform

#import <Foundation/Foundation.h>

#include <atomic>
#include <utility>

#include <tksinterface/TKSILog.h>

#include "platform/apple/guarded.h"
#include "platform/backend.h"
#include "platform/main_loop.h"

namespace tks::platform {
namespace {

using apple::runGuarded;

/// A dispatch timer that fires once. Its handler and the cancelling both run on the main queue, so that nothing fires
/// after it was destroyed there.
class AppleTimer final : public MainLoop::Timer {
 public:
  AppleTimer(std::chrono::milliseconds delay, std::function<void()> work)
      : source_(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, dispatch_get_main_queue())) {
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(delay).count();
    dispatch_source_set_timer(source_, dispatch_time(DISPATCH_TIME_NOW, nanoseconds), DISPATCH_TIME_FOREVER, 0);
    dispatch_source_t source = source_;
    dispatch_source_set_event_handler(source_, ^{
      dispatch_source_cancel(source);
      runGuarded(work);
    });
    dispatch_resume(source_);
  }
  ~AppleTimer() override { dispatch_source_cancel(source_); }

 private:
  dispatch_source_t source_;
};

class AppleMainLoop final : public MainLoop {
 public:
  void post(std::function<void()> work) override {
    dispatch_async(dispatch_get_main_queue(), ^{
      runGuarded(work);
    });
  }

  std::unique_ptr<Timer> after(std::chrono::milliseconds delay, std::function<void()> work) override {
    return std::make_unique<AppleTimer>(delay, std::move(work));
  }

  bool isMainThread() override { return [NSThread isMainThread]; }

  void run() override {
    if (!enter()) return;
    while (!stopped_.exchange(false)) {
      @autoreleasepool {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1.0e10, /*returnAfterSourceHandled=*/true);
      }
    }
    working_ = false;
  }

  void stop() override {
    stopped_ = true;
    CFRunLoopStop(CFRunLoopGetMain());
    CFRunLoopWakeUp(CFRunLoopGetMain());
  }

  /// The main run loop has no descriptor of its own; hosts on macOS run it anyway.
  int descriptor() override { return -1; }

  void drain() override {
    if (!enter()) return;
    @autoreleasepool {
      while (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, /*returnAfterSourceHandled=*/true) ==
             kCFRunLoopRunHandledSource) {
      }
    }
    working_ = false;
  }

 private:
  bool enter() {
    if (!working_.exchange(true)) return true;
    TKSILog::logWithLevel(TKSILogLevelError, "The main loop is being run or drained already.");
    return false;
  }

  std::atomic<bool> working_ = false;
  std::atomic<bool> stopped_ = false;
};

class AppleBackgroundWork final : public BackgroundWork {
 public:
  void submit(std::function<void()> work) override {
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
      runGuarded(work);
    });
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

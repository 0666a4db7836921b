#import <Foundation/Foundation.h>

#include <malloc/malloc.h>
#include <pthread.h>
#include <unistd.h>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/posix/forked_copy.h"
#include "platform/this_process.h"

namespace tks::platform {
namespace {

class AppleProcess final : public ThisProcess {
 public:
  std::int32_t identifier() override { return getpid(); }
  bool refusesAsForkedCopy(std::string_view operation) override { return posix::refusesAsForkedCopy(operation); }

  std::uint32_t threadNumber() override { return pthread_mach_thread_np(pthread_self()); }

  std::string threadDescription() override {
    @autoreleasepool {
      return apple::fromString(NSThread.currentThread.description);
    }
  }

  void giveMemoryBack() override { malloc_zone_pressure_relief(nullptr, 0); }

  std::string randomUUID() override {
    @autoreleasepool {
      CFUUIDRef identifier = CFUUIDCreate(kCFAllocatorDefault);
      NSString* text = CFBridgingRelease(CFUUIDCreateString(kCFAllocatorDefault, identifier));
      CFRelease(identifier);
      return apple::fromString(text);
    }
  }

  bool isCatalinaOrLater() override {
    if (@available(macOS 10.15, *)) return true;
    return false;
  }
};

}  // namespace

template <>
ThisProcess& backend<ThisProcess>() {
  static auto& process = *new AppleProcess;
  return process;
}

}  // namespace tks::platform

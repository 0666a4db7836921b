#import <Foundation/Foundation.h>

#include <thread>

#include "platform/apple/conversions.h"
#include "platform/backend.h"
#include "platform/clock.h"

namespace tks::platform {
namespace {

class AppleClock final : public Clock {
 public:
  std::string localTimestamp() override {
    @autoreleasepool {
      NSDateFormatter* formatter = [[NSDateFormatter alloc] init];
      formatter.locale = [NSLocale localeWithLocaleIdentifier:@"en_US_POSIX"];
      formatter.dateFormat = @"MMddHHmmssSSS";
      return apple::fromString([formatter stringFromDate:[NSDate date]]);
    }
  }

  double secondsSince1970() override {
    @autoreleasepool {
      return [NSDate date].timeIntervalSince1970;
    }
  }

  void sleep(std::chrono::microseconds duration) override { std::this_thread::sleep_for(duration); }
};

}  // namespace

template <>
Clock& backend<Clock>() {
  static auto& clock = *new AppleClock;
  return clock;
}

}  // namespace tks::platform

#pragma once

#include <chrono>
#include <string>

namespace tks::platform {

/// Time and waiting. macOS: NSDate, NSDateFormatter, nanosleep. Linux: the same by POSIX. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  /// The current local time as "MMddHHmmssSSS", for example 0315142233045.
  virtual std::string localTimestamp() = 0;
  /// Seconds from 1970-01-01 00:00:00 UTC.
  virtual double secondsSince1970() = 0;
  /// Puts the calling thread to sleep, also through interruptions.
  virtual void sleep(std::chrono::microseconds duration) = 0;
};

}  // namespace tks::platform

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tks::platform {

/// Facts about this process and its threads. macOS: getpid, pthread_mach_thread_np, NSThread, CFUUID. Linux: getpid,
/// gettid, the kernel's random source. Any thread.
class ThisProcess {
 public:
  virtual ~ThisProcess() = default;
  virtual std::int32_t identifier() = 0;
  /// Whether `operation` has to do nothing because this process is a copy, made by fork without exec, of one in which
  /// the library was at work: what it did here would be done to the other's conversation. Says so once for the whole
  /// process, at level 8.
  virtual bool refusesAsForkedCopy(std::string_view operation) = 0;
  /// Number of the calling thread, as the system's tools show it.
  virtual std::uint32_t threadNumber() = 0;
  /// The calling thread in words, for log lines.
  virtual std::string threadDescription() = 0;
  /// Gives memory that was freed back to the system, as far as the allocator keeps it. Takes up to some milliseconds.
  virtual void giveMemoryBack() = 0;
  /// A new random UUID, 36 characters.
  virtual std::string randomUUID() = 0;
  /// Whether the system counts as macOS 10.15 or later. On Linux always so.
  virtual bool isCatalinaOrLater() = 0;
};

}  // namespace tks::platform

#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/child_processes.h"
#include "platform/linux/loop/event_loop.h"
#include "platform/linux/processes/spawn.h"
#include "platform/posix/file_descriptor.h"

namespace tks::gnulinux {

/// A descriptor of a process that becomes readable when the process ends; empty, and errno, when there can be none.
posix::FileDescriptor openProcess(pid_t process);

/// Collects a child that has ended: its end, or nothing while it runs. `descriptor` may be empty.
std::optional<platform::ChildEnd> collectChild(pid_t process, const posix::FileDescriptor& descriptor);

enum class ChildState {
  running,      ///< it has not ended
  collectable,  ///< it has ended, and its status waits
  collected,    ///< it has ended, and somebody else took its status
};
/// Whether a child has ended, without collecting it.
ChildState childState(pid_t process, const posix::FileDescriptor& descriptor);

/// How a process ended that somebody else collected, where the kernel keeps that with the descriptor (Linux 6.15).
std::optional<platform::ChildEnd> rememberedEnd(const posix::FileDescriptor& descriptor);

/// Collects the children that this library started, and no others, when they end: through the main loop while that
/// runs, and whenever somebody comes by, for hosts whose loop does not run. Neither SIGCHLD nor its handler is touched,
/// so a host may ignore the signal or collect all children itself; the status is unknown then. Any thread.
class ChildCollector {
 public:
  /// The only one; never destroyed.
  static ChildCollector& shared();

  /// Takes over a child that was just started. `ended` is called once on the main thread and may be empty. A child
  /// without a descriptor gets one at the main loop's next turn, before anybody could be told of its end.
  void adopt(SpawnedProcess process, std::function<void(platform::ChildEnd)> ended);

  /// Sends a signal to a child that was taken over and runs; false when there is none. What has its number later never
  /// gets it.
  bool signal(pid_t process, int signal);

  /// Collects the children that have ended by now. Costs one load when there are none.
  void collect();

 private:
  struct Child {
    pid_t process = 0;
    posix::FileDescriptor descriptor;
    /// Told apart by this from a later process with the same identifier, where there can be no descriptor.
    std::optional<std::uint64_t> startTime;
    // Before the descriptor is closed.
    std::unique_ptr<EventLoop::Watch> watch;
    std::function<void(platform::ChildEnd)> ended;
  };

  ChildCollector() = default;
  std::optional<platform::ChildEnd> lookAt(const Child& child);
  void collectOne(std::uint64_t number);
  void watch(std::uint64_t number);
  void watchAgain(std::uint64_t number);
  void keepLooking();

  std::atomic<std::size_t> count_ = 0;
  std::mutex mutex_;  // guards what follows
  std::map<std::uint64_t, Child> children_;
  std::uint64_t adopted_ = 0;
  /// Looks after children that cannot be watched.
  std::unique_ptr<platform::MainLoop::Timer> timer_;
};

}  // namespace tks::gnulinux

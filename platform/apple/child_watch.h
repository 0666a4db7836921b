#pragma once

#import <Foundation/Foundation.h>

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/child_processes.h"

namespace tks::platform::apple {

/// A child of this process from its start until it is collected, which happens in the background: whether or not
/// anyone waits, and whether or not the host's main loop runs. Neither SIGCHLD nor its handler is touched, so that a
/// host may ignore the signal or collect all children itself; the end is unknown then. Any thread.
class ChildWatch : public std::enable_shared_from_this<ChildWatch> {
 public:
  enum class Kind { alone, leadsGroup };

  /// Takes over a child that was just started. Of one that leads a process group the whole group is ended with it.
  /// `ended` is called once, on a thread of the system's, and may be empty; it must not wait for anything.
  static std::shared_ptr<ChildWatch> begin(pid_t process, Kind kind, std::function<void(ChildEnd)> ended);

  /// Waits for the end, but not beyond the deadline: how the child ended, or nothing while it runs.
  std::optional<ChildEnd> waitUntil(std::chrono::steady_clock::time_point deadline);

  /// Kills the child, with its group where it leads one, unless it was collected already.
  void kill();
  /// Sends the child a signal; false when it has ended.
  bool signal(int number);

  pid_t process() const { return process_; }

  ChildWatch(const ChildWatch&) = delete;
  ChildWatch& operator=(const ChildWatch&) = delete;

 private:
  ChildWatch(pid_t process, Kind kind, std::function<void(ChildEnd)> ended);
  void start();
  void look(bool hasEnded);
  std::optional<ChildEnd> collect() const;

  const pid_t process_;
  const Kind kind_;
  dispatch_semaphore_t over_;
  dispatch_source_t source_ = nil;  // on the queue only

  std::mutex mutex_;  // guards what follows; and while it is held the child is not collected
  std::function<void(ChildEnd)> ended_;
  std::optional<ChildEnd> end_;
};

}  // namespace tks::platform::apple

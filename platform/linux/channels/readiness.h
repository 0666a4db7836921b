#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/linux/loop/event_loop.h"

namespace tks::gnulinux {

/// Tells on the main thread when a descriptor can be read or written. Where epoll does not take a descriptor (plain
/// files and the null device are always ready; or the system has no room for one more watch) it is looked at from a
/// timer. Destroy it before the descriptor is closed.
class Readiness {
 public:
  /// `events`: EPOLLIN or EPOLLOUT.
  Readiness(int descriptor, std::uint32_t events) : descriptor_(descriptor), events_(events) {}
  ~Readiness() { unwatch(); }
  Readiness(const Readiness&) = delete;
  Readiness& operator=(const Readiness&) = delete;

  /// Calls `ready` as long as the descriptor is ready, which includes that the other end is gone. It may call anything
  /// here and may destroy this object.
  void watch(std::function<void()> ready);
  /// Calls `ready` once, and lets go of it then.
  void once(std::function<void()> ready);
  void unwatch();

 private:
  class Polling;

  int descriptor_;
  std::uint32_t events_;
  std::unique_ptr<EventLoop::Watch> watch_;
  std::shared_ptr<Polling> polling_;
};

}  // namespace tks::gnulinux

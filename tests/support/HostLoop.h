#pragma once

#include <poll.h>

#include <chrono>
#include <functional>

#include <tksinterface/TKSMainLoop.h>

namespace tks::test {

/// Plays a host with a loop of its own: does the library's main-thread work, here and now, until a condition holds.
/// False when the time is over first. The condition is looked at after each piece of work and every 10 ms.
inline bool drainUntil(const std::function<bool()>& holds, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!holds()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    pollfd watched{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0};
    ::poll(&watched, 1, 10);
    TKSMainLoop::drain();
  }
  return true;
}

/// Does main-thread work for a while, for what must not happen.
inline void drainFor(std::chrono::milliseconds time) {
  drainUntil([] { return false; }, time);
}

}  // namespace tks::test

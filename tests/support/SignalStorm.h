#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <stop_token>
#include <thread>

namespace tks::test {

/// Interrupts the thread that makes it again and again for a scope, with a handler that does not restart system calls.
class SignalStorm {
 public:
  SignalStorm() {
    struct sigaction action {};
    action.sa_handler = [](int) { caught_.fetch_add(1, std::memory_order_relaxed); };
    ::sigaction(SIGUSR1, &action, &before_);
    caught_ = 0;
    sender_ = std::jthread([thread = ::pthread_self()](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        ::pthread_kill(thread, SIGUSR1);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
    });
  }
  ~SignalStorm() {
    sender_ = {};
    ::sigaction(SIGUSR1, &before_, nullptr);
  }
  SignalStorm(const SignalStorm&) = delete;
  SignalStorm& operator=(const SignalStorm&) = delete;

  /// How many signals were caught since the beginning.
  static int caught() { return caught_.load(std::memory_order_relaxed); }

 private:
  static inline std::atomic<int> caught_ = 0;
  struct sigaction before_ {};
  std::jthread sender_;
};

}  // namespace tks::test

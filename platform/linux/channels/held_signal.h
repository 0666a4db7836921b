#pragma once

#include <signal.h>

namespace tks::gnulinux {

/// Keeps a signal that a system call may send to the calling thread (SIGPIPE, SIGXFSZ) from being delivered, for a
/// scope. Afterwards the thread's mask is as it was, and a signal that was pending before still is. The handlers of the
/// process are not touched.
class HeldSignal {
 public:
  explicit HeldSignal(int signal);
  ~HeldSignal();
  HeldSignal(const HeldSignal&) = delete;
  HeldSignal& operator=(const HeldSignal&) = delete;

  /// Takes back the signal that the call sent. To be called when the call's error tells that it may have.
  void takeBack();

 private:
  sigset_t held_{};
  sigset_t maskBefore_{};
  bool wasBlocked_;
  bool wasPending_ = false;
};

}  // namespace tks::gnulinux

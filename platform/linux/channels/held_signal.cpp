#include "platform/linux/channels/held_signal.h"

#include <cerrno>
#include <ctime>

namespace tks::gnulinux {

HeldSignal::HeldSignal(int signal) {
  ::sigemptyset(&held_);
  ::sigaddset(&held_, signal);
  ::pthread_sigmask(SIG_BLOCK, &held_, &maskBefore_);
  wasBlocked_ = ::sigismember(&maskBefore_, signal) == 1;
  if (!wasBlocked_) return;
  // What was not blocked cannot have been pending.
  sigset_t pending;
  ::sigpending(&pending);
  wasPending_ = ::sigismember(&pending, signal) == 1;
}

HeldSignal::~HeldSignal() {
  if (wasBlocked_) return;
  const int reason = errno;
  ::pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
  errno = reason;
}

void HeldSignal::takeBack() {
  if (wasPending_) return;
  const int reason = errno;
  const timespec now{};
  while (::sigtimedwait(&held_, nullptr, &now) == -1 && errno == EINTR) {
  }
  errno = reason;
}

}  // namespace tks::gnulinux

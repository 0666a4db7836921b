#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

namespace tks::test {

/// Does `work` in a child process that is killed before or after its n-th system call, for every n until it comes to
/// its end; calls `look` after each death. Returns how often the child was killed, or -1 where processes may not be
/// traced.
inline int killedAtEachCall(const std::function<void()>& work, const std::function<void()>& look) {
  const auto waitFor = [](pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, __WALL) < 0 && errno == EINTR) {
    }
    return status;
  };
  for (int stops = 1; stops < 10'000; ++stops) {
    const pid_t child = ::fork();
    if (child == 0) {
      if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(77);
      ::raise(SIGSTOP);
      work();
      ::_exit(0);
    }
    int status = waitFor(child);
    if (!WIFSTOPPED(status)) return -1;
    for (int stop = 0; stop < stops && WIFSTOPPED(status); ++stop) {
      ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
      status = waitFor(child);
    }
    if (WIFEXITED(status)) return stops - 1;
    ::kill(child, SIGKILL);
    waitFor(child);
    look();
    if (::testing::Test::HasFailure()) return stops;
  }
  return -1;
}

}  // namespace tks::test

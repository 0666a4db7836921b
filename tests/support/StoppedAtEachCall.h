#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <cerrno>
#include <functional>
#include <string_view>

#include "tests/support/ChildProcess.h"

namespace tks::test {

/// What happens around a process that is halted, see stoppedAtEachCall.
struct WhileStopped {
  std::function<void()> before;              ///< before each start
  std::function<void()> meanwhile;           ///< while the process stands still
  std::function<void(int code)> afterwards;  ///< with its exit code, after it has gone on to its end
};

/// Plays a role in another process, which stops itself (SIGSTOP) where it becomes of interest, and halts it before or
/// after its n-th system call from there, for every n until it comes to its end first. Returns how often it was halted,
/// or -1 where processes may not be traced.
inline int stoppedAtEachCall(std::string_view role, const Arguments& arguments, const WhileStopped& what) {
  const auto waitFor = [](pid_t child, int options) {
    int status = 0;
    while (::waitpid(child, &status, options) < 0 && errno == EINTR) {
    }
    return status;
  };
  for (int stops = 1; stops < 10'000; ++stops) {
    what.before();
    ChildProcess child = ChildProcess::inRole(role, arguments);
    if (!WIFSTOPPED(waitFor(child.pid(), WUNTRACED))) return -1;
    if (::ptrace(PTRACE_ATTACH, child.pid(), nullptr, nullptr) != 0) return -1;
    int status = waitFor(child.pid(), __WALL);
    ::kill(child.pid(), SIGCONT);
    for (int stop = 0; stop < stops && WIFSTOPPED(status);) {
      ::ptrace(PTRACE_SYSCALL, child.pid(), nullptr, nullptr);
      status = waitFor(child.pid(), __WALL);
      // Of the signals that begin this only the calls count.
      if (WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP) ++stop;
    }
    if (WIFEXITED(status)) return stops - 1;
    what.meanwhile();
    ::ptrace(PTRACE_DETACH, child.pid(), nullptr, nullptr);
    what.afterwards(child.wait());
    if (::testing::Test::HasFailure()) return stops;
  }
  return -1;
}

}  // namespace tks::test

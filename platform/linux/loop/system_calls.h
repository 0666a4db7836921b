#pragma once

#include <pthread.h>
#include <signal.h>
#include <sys/types.h>

#include <cstddef>

namespace tks::gnulinux {

/// The system calls that an older kernel, a filter or a limit may refuse, in one table, so that a test can refuse them
/// as well. Each is called like the kernel's own and fails with -1 and errno; threadCreate returns the number instead.
struct SystemCalls {
  int (*epollCreate)(int flags);
  int (*eventfd)(unsigned initial, int flags);
  int (*timerfdCreate)(int clock, int flags);
  int (*inotifyInit)(int flags);
  /// The flag of clone that gives a descriptor of the new process, from Linux 5.2 on. 0: as before.
  int cloneDescriptorFlag;
  int (*pidfdOpen)(pid_t process, unsigned flags);
  int (*pidfdSendSignal)(int process, int signal, siginfo_t* facts, unsigned flags);
  int (*closeRange)(unsigned first, unsigned last, unsigned flags);
  int (*threadCreate)(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument);
  /// write() that raises no SIGPIPE: pwritev2 with RWF_NOSIGNAL, from Linux 6.18 on. EOPNOTSUPP before.
  ssize_t (*writeWithoutSignal)(int descriptor, const void* bytes, std::size_t count);
  int (*renameat2)(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags);
};

/// The table in force. Changed by tests only, and never while another thread uses the library.
SystemCalls& systemCalls();

}  // namespace tks::gnulinux

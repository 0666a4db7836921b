#include "platform/linux/loop/system_calls.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/uio.h>
#include <unistd.h>

namespace tks::gnulinux {
namespace {

// Not by the C library's wrappers: those of some versions lack these calls or emulate them.
int pidfdOpen(pid_t process, unsigned flags) { return static_cast<int>(::syscall(SYS_pidfd_open, process, flags)); }

int pidfdSendSignal(int process, int signal, siginfo_t* facts, unsigned flags) {
  return static_cast<int>(::syscall(SYS_pidfd_send_signal, process, signal, facts, flags));
}

int closeRange(unsigned first, unsigned last, unsigned flags) {
  return static_cast<int>(::syscall(SYS_close_range, first, last, flags));
}

int renameAt2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) {
  return static_cast<int>(::syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}

#ifndef RWF_NOSIGNAL
#define RWF_NOSIGNAL 0x00000100
#endif

ssize_t writeWithoutSignal(int descriptor, const void* bytes, std::size_t count) {
  const iovec piece{.iov_base = const_cast<void*>(bytes), .iov_len = count};
  return ::pwritev2(descriptor, &piece, 1, -1, RWF_NOSIGNAL);  // -1: where a write() would write
}

}  // namespace

SystemCalls& systemCalls() {
  static SystemCalls calls{.epollCreate = ::epoll_create1,
                           .eventfd = ::eventfd,
                           .timerfdCreate = ::timerfd_create,
                           .inotifyInit = ::inotify_init1,
                           .cloneDescriptorFlag = CLONE_PIDFD,
                           .pidfdOpen = pidfdOpen,
                           .pidfdSendSignal = pidfdSendSignal,
                           .closeRange = closeRange,
                           .threadCreate = ::pthread_create,
                           .writeWithoutSignal = writeWithoutSignal,
                           .renameat2 = renameAt2};
  return calls;
}

}  // namespace tks::gnulinux

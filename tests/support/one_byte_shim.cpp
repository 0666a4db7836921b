#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>

// To be preloaded into a program: every read and write of a pipe, socket or file moves one byte at most. The system may
// always do so; it just seldom does.

namespace {

std::atomic<unsigned long> capped = 0;

/// Event counters and the like move eight bytes or none, and stay as they are.
bool isChannel(int descriptor) {
  const int reason = errno;
  struct stat facts {};
  const bool channel = ::fstat(descriptor, &facts) == 0 &&
                       (S_ISFIFO(facts.st_mode) || S_ISSOCK(facts.st_mode) || S_ISREG(facts.st_mode));
  errno = reason;
  return channel;
}

std::size_t cap(int descriptor, std::size_t count) {
  if (count <= 1 || !isChannel(descriptor)) return count;
  ++capped;
  return 1;
}

}  // namespace

extern "C" {

/// How many calls were cut short.
__attribute__((visibility("default"))) unsigned long tksCappedCalls() { return capped; }

__attribute__((visibility("default"))) ssize_t read(int descriptor, void* into, std::size_t count) {
  return ::syscall(SYS_read, descriptor, into, cap(descriptor, count));
}

__attribute__((visibility("default"))) ssize_t write(int descriptor, const void* from, std::size_t count) {
  return ::syscall(SYS_write, descriptor, from, cap(descriptor, count));
}

__attribute__((visibility("default"))) ssize_t pread(int descriptor, void* into, std::size_t count, off_t at) {
  return ::syscall(SYS_pread64, descriptor, into, cap(descriptor, count), at);
}

__attribute__((visibility("default"))) ssize_t pwrite(int descriptor, const void* from, std::size_t count, off_t at) {
  return ::syscall(SYS_pwrite64, descriptor, from, cap(descriptor, count), at);
}

__attribute__((visibility("default"))) ssize_t pwritev2(int descriptor, const iovec* pieces, int number, off_t at,
                                                        int flags) {
  iovec first = number > 0 ? pieces[0] : iovec{};
  first.iov_len = cap(descriptor, first.iov_len);
  return ::syscall(SYS_pwritev2, descriptor, &first, number > 0 ? 1 : 0, at, 0L, flags);
}

__attribute__((visibility("default"))) ssize_t recv(int descriptor, void* into, std::size_t count, int flags) {
  return ::syscall(SYS_recvfrom, descriptor, into, cap(descriptor, count), flags, nullptr, nullptr);
}

__attribute__((visibility("default"))) ssize_t send(int descriptor, const void* from, std::size_t count, int flags) {
  return ::syscall(SYS_sendto, descriptor, from, cap(descriptor, count), flags, nullptr, 0);
}
}

#include "platform/posix/standard_handles.h"

#include <fcntl.h>

namespace tks::posix {
namespace {

constexpr int kFirstFree = 3;

/// A private copy of a standard handle. True, and an empty copy, when the process has none.
bool keep(int number, FileDescriptor& copy) {
  copy.reset(::fcntl(number, F_DUPFD_CLOEXEC, kFirstFree));
  return copy || errno == EBADF;
}

/// Puts `descriptor` in the place of a standard handle, close-on-exec: other children of the host must not keep the
/// conversation alive. The calls that exist everywhere, since dup3 does not.
bool put(const FileDescriptor& descriptor, int number) {
  return retried([&] { return ::dup2(descriptor.get(), number); }) == number &&
         ::fcntl(number, F_SETFD, FD_CLOEXEC) == 0;
}

void putBack(const FileDescriptor& before, int number, int flags) {
  if (!before) {
    ::close(number);
    return;
  }
  retried([&] { return ::dup2(before.get(), number); });
  ::fcntl(number, F_SETFD, flags);
}

}  // namespace

bool raiseAboveStandard(FileDescriptor& descriptor) {
  if (descriptor.get() >= kFirstFree) return true;
  if (!descriptor) return false;
  FileDescriptor raised(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kFirstFree));
  if (!raised) return false;
  descriptor = std::move(raised);
  return true;
}

Pipe makePipe() {
  int ends[2];
#ifdef __linux__
  if (::pipe2(ends, O_CLOEXEC) != 0) return {};
#else
  if (::pipe(ends) != 0) return {};
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
#endif
  Pipe pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
  if (!raiseAboveStandard(pipe.reader) || !raiseAboveStandard(pipe.writer)) return {};
  return pipe;
}

StandardHandles& StandardHandles::shared() {
  static auto& handles = *new StandardHandles;
  return handles;
}

bool StandardHandles::prepare(Joint& joint) {
  return (joint.toChild_ = makePipe()).reader && (joint.fromChild_ = makePipe()).reader &&
         keep(STDIN_FILENO, joint.inputBefore_) && keep(STDOUT_FILENO, joint.outputBefore_);
}

bool StandardHandles::Joint::putInForce() {
  const int inputFlags = ::fcntl(STDIN_FILENO, F_GETFD);
  const int outputFlags = ::fcntl(STDOUT_FILENO, F_GETFD);
  if (!put(toChild_.writer, STDOUT_FILENO) || !put(fromChild_.reader, STDIN_FILENO)) {
    const int reason = errno;
    putBack(outputBefore_, STDOUT_FILENO, outputFlags);
    putBack(inputBefore_, STDIN_FILENO, inputFlags);
    errno = reason;
    return false;
  }
  toChild_ = {};
  fromChild_ = {};
  if (!handles_.joined_) {
    handles_.originalInput_ = std::move(inputBefore_);
    handles_.originalOutput_ = std::move(outputBefore_);
  }
  handles_.joined_ = true;
  return true;
}

int StandardHandles::originalInput() {
  const std::lock_guard lock(mutex_);
  return joined_ ? originalInput_.get() : STDIN_FILENO;
}

int StandardHandles::originalOutput() {
  const std::lock_guard lock(mutex_);
  return joined_ ? originalOutput_.get() : STDOUT_FILENO;
}

}  // namespace tks::posix

#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tks::posix {

/// Calls again as long as a signal interrupts the call.
template <class Call>
auto retried(Call call) {
  decltype(call()) result;
  do {
    result = call();
  } while (result == -1 && errno == EINTR);
  return result;
}

/// Owns a file descriptor and closes it. Leaves errno as it is.
class FileDescriptor {
 public:
  FileDescriptor() noexcept = default;
  explicit FileDescriptor(int number) noexcept : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ~FileDescriptor() { reset(); }

  int get() const noexcept { return number_; }
  explicit operator bool() const noexcept { return number_ >= 0; }
  int release() noexcept { return std::exchange(number_, -1); }
  void reset(int number = -1) noexcept {
    const int before = std::exchange(number_, number);
    if (before < 0) return;
    const int reason = errno;
    ::close(before);  // never again after EINTR: the number may be somebody else's by then
    errno = reason;
  }

 private:
  int number_ = -1;
};

}  // namespace tks::posix

#include "platform/posix/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <string>
#include <thread>
#include <utility>

#include "platform/posix/file_descriptor.h"
#include "platform/posix/posix_error.h"

namespace tks::posix {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kBetweenAttempts{20};

/// The lock of flock belongs to the open file, so that two parts of one process keep each other out as well.
class HeldLock final : public platform::FileLock {
 public:
  explicit HeldLock(FileDescriptor file) : file_(std::move(file)) {}

 private:
  FileDescriptor file_;
};

}  // namespace

std::unique_ptr<platform::FileLock> lockFile(std::string_view path, std::chrono::milliseconds patience,
                                             TKSError* error) {
  const std::string name(path);
  FileDescriptor file(
      retried([&] { return ::open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600); }));
  if (!file) {
    fail(error, "lock", path);
    return nullptr;
  }
  const steady_clock::time_point deadline = steady_clock::now() + patience;
  while (retried([&] { return ::flock(file.get(), LOCK_EX | LOCK_NB); }) != 0) {
    if (errno != EWOULDBLOCK || steady_clock::now() >= deadline) {
      fail(error, "lock", path);
      return nullptr;
    }
    std::this_thread::sleep_for(kBetweenAttempts);
  }
  return std::make_unique<HeldLock>(std::move(file));
}

}  // namespace tks::posix

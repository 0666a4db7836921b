#include "platform/posix/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/posix/forked_copy.h"
#include "platform/posix/paths.h"
#include "platform/posix/posix_error.h"
#include "platform/posix/standard_handles.h"

namespace tks::posix {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kFirstPause{1};
constexpr milliseconds kLongestPause{20};

/// Which thread of this process holds which lock. A thread that comes for a lock that it has itself, from a callback of
/// the host, would wait for nothing.
class Holders {
 public:
  static Holders& shared() {
    static auto& holders = *new Holders;
    return holders;
  }
  bool isHeldByThisThread(const struct stat& facts) {
    const std::scoped_lock lock(mutex_);
    return std::ranges::any_of(held_, [&](const Held& one) {
      return one.thread == std::this_thread::get_id() && one.device == facts.st_dev && one.file == facts.st_ino;
    });
  }
  std::uint64_t add(const struct stat& facts) {
    const std::scoped_lock lock(mutex_);
    held_.push_back({++added_, std::this_thread::get_id(), facts.st_dev, facts.st_ino});
    return added_;
  }
  void remove(std::uint64_t number) {
    const std::scoped_lock lock(mutex_);
    std::erase_if(held_, [number](const Held& one) { return one.number == number; });
  }

 private:
  struct Held {
    std::uint64_t number;
    std::thread::id thread;
    dev_t device;
    ino_t file;
  };
  std::mutex mutex_;
  std::vector<Held> held_;
  std::uint64_t added_ = 0;
};

/// The lock of flock belongs to the open file, so that two parts of one process keep each other out as well.
class HeldLock final : public platform::FileLock {
 public:
  HeldLock(FileDescriptor file, const struct stat& facts, bool isEffective)
      : number_(Holders::shared().add(facts)), file_(std::move(file)), facts_(facts), isEffective_(isEffective) {}
  // Closing alone is not enough: a process that was forked meanwhile has the same open file.
  // A copy made by fork, on the other hand, must not end the lock of the process that it was made of.
  ~HeldLock() override {
    if (isForkedCopy()) return;
    Holders::shared().remove(number_);
    struct stat now {};
    if (::fstat(file_.get(), &now) == 0 && now.st_dev == facts_.st_dev && now.st_ino == facts_.st_ino) {
      ::flock(file_.get(), LOCK_UN);
    } else {
      file_.release();  // the host has closed it by mistake, and the number may be its own by now
    }
  }
  HeldLock(const HeldLock&) = delete;
  HeldLock& operator=(const HeldLock&) = delete;

  bool isEffective() const override { return isEffective_; }

 private:
  std::uint64_t number_;
  FileDescriptor file_;
  const struct stat facts_;
  const bool isEffective_;
};

bool isFolder(const std::string& path) {
  struct stat facts {};
  return ::stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

FileDescriptor openToLock(const std::string& path) {
  const int flags = isFolder(path) ? O_RDONLY | O_DIRECTORY : O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK;
  return FileDescriptor(retried([&] { return ::open(path.c_str(), flags | O_CLOEXEC, 0600); }));
}

/// Errors of volumes without locks, or without locks on read-only files.
bool hasNoLocks(int number) {
  // The two that mean "not supported" are one number on Linux and two on macOS.
  return number == ENOLCK || number == EOPNOTSUPP || number == ENOTSUP || number == ENOSYS || number == EINVAL ||
         number == EBADF;
}

}  // namespace

bool waitForLock(const FileDescriptor& file, milliseconds patience) {
  const steady_clock::time_point deadline = steady_clock::now() + patience;
  milliseconds pause = kFirstPause;
  while (retried([&] { return ::flock(file.get(), LOCK_EX | LOCK_NB); }) != 0) {
    if (errno != EWOULDBLOCK) return false;
    if (steady_clock::now() >= deadline) {
      errno = ETIMEDOUT;
      return false;
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, kLongestPause);
  }
  return true;
}

std::unique_ptr<platform::FileLock> lockFile(std::string_view path, milliseconds patience, TKSError* error) {
  claimProcess();
  FileDescriptor file = isPath(path) ? openToLock(std::string(path)) : FileDescriptor();
  struct stat facts {};
  if (!raiseAboveStandard(file) || ::fstat(file.get(), &facts) != 0) {
    fail(error, "lock", path);
    return nullptr;
  }
  const bool isOwn = Holders::shared().isHeldByThisThread(facts);
  if (isOwn) errno = EDEADLK;
  const bool isEffective = !isOwn && waitForLock(file, patience);
  if (!isEffective && !hasNoLocks(errno)) {
    fail(error, "lock", path);
    return nullptr;
  }
  return std::make_unique<HeldLock>(std::move(file), facts, isEffective);
}

}  // namespace tks::posix

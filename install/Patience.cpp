#include "install/Patience.h"

#include <algorithm>
#include <utility>

#include <tksinterface/TKSILog.h>

#include "foundation/logging/Logging.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kOnMainThread{2000};

/// How many locks the operations of this thread hold.
thread_local int locksHeld = 0;

/// A lock that counts while it is held. It is given back on the thread that took it.
class CountedLock final : public platform::FileLock {
 public:
  explicit CountedLock(std::unique_ptr<platform::FileLock> lock) : lock_(std::move(lock)) { ++locksHeld; }
  ~CountedLock() override { --locksHeld; }
  CountedLock(const CountedLock&) = delete;
  CountedLock& operator=(const CountedLock&) = delete;

  bool isEffective() const override { return lock_->isEffective(); }

 private:
  const std::unique_ptr<platform::FileLock> lock_;
};

milliseconds patienceOfThisThread(milliseconds inBackground) {
  if (locksHeld > 0) return milliseconds(0);
  return platform::mainLoop().isMainThread() ? std::min(kOnMainThread, inBackground) : inBackground;
}

}  // namespace

Patience::Patience(milliseconds inBackground) : left_(patienceOfThisThread(inBackground)) {}

std::unique_ptr<platform::FileLock> Patience::lock(std::string_view path, TKSError* error) {
  TKSError reason;
  std::unique_ptr<platform::FileLock> lock = platform::files().lock(path, milliseconds(0), &reason);
  if (!lock && reason.reason == TKSErrorReason::busy && left_ > milliseconds(0)) {
    if (!hasSaidSo_) TKSILog::logWithLevel(TKSILogLevelWarning, "Waiting for another process at: %@", masked(path));
    hasSaidSo_ = true;
    const steady_clock::time_point begin = steady_clock::now();
    lock = platform::files().lock(path, left_, &reason);
    left_ -= std::min(left_, std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin));
  }
  if (lock) return std::make_unique<CountedLock>(std::move(lock));
  if (error != nullptr) *error = std::move(reason);
  return nullptr;
}

}  // namespace tks::install

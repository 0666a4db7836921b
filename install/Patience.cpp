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

}  // namespace

Patience::Patience(milliseconds inBackground)
    : left_(platform::mainLoop().isMainThread() ? std::min(kOnMainThread, inBackground) : inBackground) {}

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
  if (!lock && error != nullptr) *error = std::move(reason);
  return lock;
}

}  // namespace tks::install

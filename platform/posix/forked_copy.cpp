#include "platform/posix/forked_copy.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <new>

#include <tksinterface/TKSILog.h>

#include "foundation/logging/Logging.h"

namespace tks::posix {
namespace {

/// The process that was claimed; a copy inherits it.
std::atomic<pid_t> claimed = 0;
/// A byte that the kernel clears in copies; null where it cannot do that.
std::atomic<const std::atomic<char>*> mark = nullptr;
std::atomic<bool> hasRefused = false;

}  // namespace

void claimProcess() noexcept {
  if (claimed.load(std::memory_order_relaxed) != 0) return;
  pid_t nobody = 0;
  if (!claimed.compare_exchange_strong(nobody, ::getpid())) return;
#ifdef MADV_WIPEONFORK
  constexpr std::size_t kSize = 1;  // a page
  void* const page = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) return;
  if (::madvise(page, kSize, MADV_WIPEONFORK) == 0) {
    mark = new (page) std::atomic<char>(1);
  } else {
    ::munmap(page, kSize);
  }
#endif
}

bool isForkedCopy() noexcept {
  if (const auto* const byte = mark.load(std::memory_order_acquire)) return byte->load(std::memory_order_relaxed) == 0;
  const pid_t process = claimed.load(std::memory_order_relaxed);
  return process != 0 && process != ::getpid();
}

bool refusesAsForkedCopy(std::string_view operation) {
  if (!isForkedCopy()) return false;
  if (!hasRefused.exchange(true)) {
    TKSILog::logWithLevel(TKSILogLevelError,
                          "This process is a copy made by fork without exec, '%@' does nothing in it.", operation);
  }
  return true;
}

}  // namespace tks::posix

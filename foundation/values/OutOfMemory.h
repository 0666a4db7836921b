#pragma once

#include <new>
#include <type_traits>

#include <tksinterface/TKSError.h>

namespace tks {

/// Fills an error, if there is one to fill, where there may be no memory left even for that.
inline void setOutOfMemory(TKSError* error) noexcept {
  if (error == nullptr) return;
  // Short enough to need no memory.
  error->domain.assign("POSIX");
  error->code = 12;
  error->localizedDescription.assign("Out of memory");
  error->reason = TKSErrorReason::outOfResources;
  error->recoverySuggestion.clear();
  try {
    error->recoverySuggestion.assign(TKSErrorReasonSuggestion(error->reason));
  } catch (const std::bad_alloc&) {
    // The reason says as much.
  }
}

/// Whether an error was filled by setOutOfMemory.
inline bool isOutOfMemory(const TKSError& error) noexcept { return error.domain == "POSIX" && error.code == 12; }

/// Does the work of an operation that has no error to fill: returns `otherwise` when memory runs out.
template <class Work>
auto unlessOutOfMemory(Work work, std::invoke_result_t<Work> otherwise = {}) noexcept -> std::invoke_result_t<Work> {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    return otherwise;
  }
}

}  // namespace tks

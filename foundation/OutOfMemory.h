#pragma once

#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks {

/// Fills an error, if there is one to fill, where there may be no memory left even for that.
inline void setOutOfMemory(TKSError* error) noexcept {
  if (error == nullptr) return;
  // Short enough to need no memory.
  error->domain.assign("POSIX");
  error->code = 12;
  error->localizedDescription.assign("Out of memory");
}

}  // namespace tks

#pragma once

#include <cmath>
#include <cstddef>

#include "platform/real_text.h"

namespace tks {

/// Room for the text of any real.
inline constexpr std::size_t kRealTextCapacity = 32;

/// Writes a real with the fewest digits that read back the same: 1.0 as "1", 0.1 as "0.1", 1e300 as "1e+300". Answers
/// the end of the text.
inline char* writeReal(char* out, double value) noexcept {
  const double magnitude = std::fabs(value);
  const bool plain = magnitude == 0 || (magnitude >= 1e-4 && magnitude < 1e16);
  return platform::writeReal(out, value, plain ? platform::RealNotation::fixed : platform::RealNotation::scientific);
}

}  // namespace tks

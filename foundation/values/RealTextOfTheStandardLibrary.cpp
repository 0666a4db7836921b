#include <charconv>

#include "foundation/values/RealText.h"

namespace tks {

char* writeReal(char* out, double value, RealNotation notation) noexcept {
  const std::chars_format format =
      notation == RealNotation::fixed ? std::chars_format::fixed : std::chars_format::scientific;
  return std::to_chars(out, out + kRealTextCapacity, value, format).ptr;
}

}  // namespace tks

#include "platform/real_text.h"

#include <charconv>

namespace tks::platform {

char* writeReal(char* out, double value, RealNotation notation) noexcept {
  const std::chars_format format =
      notation == RealNotation::fixed ? std::chars_format::fixed : std::chars_format::scientific;
  return std::to_chars(out, out + 32, value, format).ptr;
}

}  // namespace tks::platform

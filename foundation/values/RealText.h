#pragma once

#include <cmath>
#include <cstddef>

namespace tks {

/// Room for the text of any real.
inline constexpr std::size_t kRealTextCapacity = 32;

enum class RealNotation {
  fixed,       ///< "0.1", "1500000"
  scientific,  ///< "1e-01", "1.5e+06"
};

/// Writes a real with the fewest digits that read back the same, in the form of std::to_chars: "0.1", "1e+300". `out`
/// has room for 32 characters; fixed notation is for magnitudes below 1e16 and from 1e-4. Returns the end of the text.
/// Any thread; the locale does not matter. Two sources define it, of which the build takes one: the C++ library of
/// macOS writes reals only since macOS 13.3.
char* writeReal(char* out, double value, RealNotation notation) noexcept;

/// The same in the notation that fits: 1.0 as "1", 0.1 as "0.1", 1e300 as "1e+300". Returns the end of the text.
inline char* writeReal(char* out, double value) noexcept {
  const double magnitude = std::fabs(value);
  const bool plain = magnitude == 0 || (magnitude >= 1e-4 && magnitude < 1e16);
  return writeReal(out, value, plain ? RealNotation::fixed : RealNotation::scientific);
}

}  // namespace tks

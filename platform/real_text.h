#pragma once

namespace tks::platform {

enum class RealNotation { fixed, scientific };

/// Writes a real with the fewest digits that read back the same, in the form of std::to_chars: "0.1", "1e+300". `out`
/// has room for 32 characters; fixed notation is for magnitudes below 1e16 and from 1e-4. Answers the end of the text.
/// macOS: own code, for the C++ library there writes reals only since macOS 13.3. Linux: std::to_chars. Any thread; no
/// locale has a say.
char* writeReal(char* out, double value, RealNotation notation) noexcept;

}  // namespace tks::platform

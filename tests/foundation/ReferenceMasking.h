#pragma once

#include <string>

namespace tks::test {

/// The masking rules written down once more, as literally and simply as possible: lower-case copies, plain searches, no
/// thought of speed. What the library makes of any text must equal this.
std::string referenceRemovePII(const std::string& input);
std::string referenceMask(std::string text, std::size_t start, std::size_t end);

}  // namespace tks::test

#pragma once

#include <string>
#include <vector>

namespace tks::test {

/// The masking rules written down once more, as literally and simply as possible: lower-case copies, plain searches, no
/// thought of speed. What the library makes of any text must equal this.
/// `usersFolders`: in which names are masked besides those in "/users/".
std::string referenceRemovePII(const std::string& input, const std::vector<std::string>& usersFolders = {});
std::string referenceMask(std::string text, std::size_t start, std::size_t end);

}  // namespace tks::test

#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace tks::masking {

/// What masking may cut.
enum class Unit {
  bytes,       ///< any byte
  characters,  ///< whole UTF-8 characters: the bytes that a cut would leave over are masked too
};

/// Puts "*" in the place of the bytes [start, end), but for the first three of a range longer than that. `end` may be
/// std::string::npos or beyond the text; a range that ends before it starts is no range.
void maskRange(std::string& text, std::size_t start, std::size_t end, Unit unit);

/// Applies all masking rules to a text, in place and in a time that grows with its length alone. Folder names are
/// masked that stand in "/users/", and in the folders that are given: lower case, a slash at both ends, the longest
/// first.
void removePersonalData(std::string& text, Unit unit, std::span<const std::string> usersFolders = {});

}  // namespace tks::masking

#pragma once

#include <cstddef>
#include <string_view>

namespace tks {

/// The beginning of a UTF-8 text: at most `count` characters, counted as UTF-16 units. Never cuts a character in two.
std::string_view firstCharacters(std::string_view text, std::size_t count);

/// A text without the blanks, tabs and line ends at both ends, those beyond ASCII included.
std::string_view trimmed(std::string_view text);

}  // namespace tks

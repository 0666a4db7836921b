#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tks::utf8 {

/// Takes the first character off a text that is not empty. Nothing, and one byte taken, when it does not begin with a
/// character: broken sequences, overlong forms and surrogates do not count as one.
std::optional<char32_t> takeCharacter(std::string_view& text) noexcept;

/// Appends a character, which must be one: neither a surrogate nor beyond U+10FFFF.
void append(std::string& text, char32_t character);

/// Whether all characters of a text are ASCII.
bool isAscii(std::string_view text) noexcept;

/// Whether a text consists of whole characters.
bool isValid(std::string_view text) noexcept;

}  // namespace tks::utf8

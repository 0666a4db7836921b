#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <tksinterface/TKSValue.h>

namespace tks::base64 {

/// What of a text is put up with.
enum class Tolerance {
  /// Any characters between those of the alphabet; the padding has to be right.
  ofCharacters,
  /// Padding that is missing or too long; between the characters of the alphabet only blanks and line ends.
  ofPadding,
};

/// The bytes of a text in the standard alphabet ("+" and "/"). Nothing when the text has what is not put up with, or
/// padding in the middle; the empty text gives no bytes.
std::optional<TKSData> decode(std::string_view text, Tolerance tolerance = Tolerance::ofCharacters);
/// The same into `bytes`, whose room is used again. False leaves part of them there.
bool decodeInto(TKSData& bytes, std::string_view text, Tolerance tolerance = Tolerance::ofCharacters);

/// The text for bytes, padded, on one line.
std::string encode(std::span<const std::uint8_t> bytes);

}  // namespace tks::base64

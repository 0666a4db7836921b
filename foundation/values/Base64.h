#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <tksinterface/TKSValue.h>

namespace tks::base64 {

/// The bytes behind a text in the standard alphabet ("+" and "/"). All other characters but the padding are ignored,
/// line ends and blanks too. Nothing when the padding is missing, misplaced or too long; the empty text gives no bytes.
std::optional<TKSData> decode(std::string_view text);

/// The text for bytes, padded, on one line.
std::string encode(std::span<const std::uint8_t> bytes);

}  // namespace tks::base64

#include "foundation/values/Base64.h"

#include <array>
#include <cstddef>

namespace tks::base64 {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';
constexpr std::uint8_t kUnknown = 0xFF;

constexpr std::array<std::uint8_t, 256> kValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kUnknown);
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  }
  return values;
}();

bool isBlank(char character) { return character == ' ' || character == '\t' || character == '\n' || character == '\r'; }

}  // namespace

bool decodeInto(TKSData& bytes, std::string_view text, Tolerance tolerance) {
  bytes.clear();
  bytes.reserve(text.size() / 4 * 3 + 3);
  std::uint32_t bits = 0;
  unsigned sextets = 0;
  unsigned paddings = 0;
  for (const char character : text) {
    if (character == kPadding) {
      ++paddings;
      continue;
    }
    const std::uint8_t value = kValues[static_cast<unsigned char>(character)];
    if (value == kUnknown) {
      if (tolerance == Tolerance::ofPadding && !isBlank(character)) return false;
      continue;
    }
    if (paddings != 0) return false;
    bits = bits << 6 | value;
    if (++sextets < 4) continue;
    bytes.push_back(static_cast<std::uint8_t>(bits >> 16));
    bytes.push_back(static_cast<std::uint8_t>(bits >> 8));
    bytes.push_back(static_cast<std::uint8_t>(bits));
    sextets = 0;
  }
  // Padding fills the last group of four, which holds at least one whole byte.
  if (sextets == 1 || (tolerance == Tolerance::ofCharacters && paddings != (4 - sextets) % 4)) return false;
  if (sextets >= 2) bytes.push_back(static_cast<std::uint8_t>(bits >> (sextets == 2 ? 4 : 10)));
  if (sextets == 3) bytes.push_back(static_cast<std::uint8_t>(bits >> 2));
  return true;
}

std::optional<TKSData> decode(std::string_view text, Tolerance tolerance) {
  TKSData bytes;
  if (!decodeInto(bytes, text, tolerance)) return std::nullopt;
  return bytes;
}

std::string encode(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::size_t given = bytes.size() - i;
    const std::uint32_t bits = static_cast<std::uint32_t>(bytes[i]) << 16 |
                               (given > 1 ? static_cast<std::uint32_t>(bytes[i + 1]) << 8 : 0) |
                               (given > 2 ? static_cast<std::uint32_t>(bytes[i + 2]) : 0);
    text += kAlphabet[bits >> 18];
    text += kAlphabet[bits >> 12 & 63];
    text += given > 1 ? kAlphabet[bits >> 6 & 63] : kPadding;
    text += given > 2 ? kAlphabet[bits & 63] : kPadding;
  }
  return text;
}

}  // namespace tks::base64

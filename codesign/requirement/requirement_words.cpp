#include "codesign/requirement/requirement_words.h"

#include <algorithm>
#include <cstdint>

#include "foundation/values/Hexadecimal.h"

namespace tks::codesign::requirement {
namespace {

bool isPlain(std::string_view text) {
  const auto isLetter = [](char character) { return (character | 32) >= 'a' && (character | 32) <= 'z'; };
  const auto isPlainCharacter = [&](char character) {
    return isLetter(character) || (character >= '0' && character <= '9');
  };
  return !text.empty() && isLetter(text.front()) && std::ranges::all_of(text, isPlainCharacter);
}

std::string digitsOf(std::string_view bytes) {
  return hexadecimal({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

}  // namespace

std::string quoted(std::string_view text) {
  const bool printable =
      std::ranges::all_of(text, [](char character) { return static_cast<unsigned char>(character) >= 0x20; });
  if (!printable) return "0x" + digitsOf(text);
  std::string result = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') result += '\\';
    result += character;
  }
  return result + "\"";
}

std::string plainOrQuoted(std::string_view text) { return isPlain(text) ? std::string(text) : quoted(text); }
std::string hashText(std::string_view hash) { return "H\"" + digitsOf(hash) + "\""; }

std::string slotText(std::int32_t slot) {
  if (slot == 0) return "leaf";
  if (slot == -1) return "root";
  return std::to_string(slot);
}

}  // namespace tks::codesign::requirement

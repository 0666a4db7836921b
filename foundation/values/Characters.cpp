#include "foundation/values/Characters.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "foundation/values/Utf8.h"

namespace tks {
namespace {

bool beginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

/// A character of four bytes takes two UTF-16 units.
std::size_t unitsOf(char firstByte) { return static_cast<unsigned char>(firstByte) >= 0xF0 ? 2 : 1; }

/// What Unicode counts as a separator, and the line ends.
bool isBlank(char32_t character) {
  if (character >= 0x2000 && character <= 0x200A) return true;
  constexpr char32_t kBlanks[] = {'\t', '\n',   '\v',   '\f',   '\r',   ' ',    0x85,
                                  0xA0, 0x1680, 0x2028, 0x2029, 0x202F, 0x205F, 0x3000};
  return std::ranges::find(kBlanks, character) != std::end(kBlanks);
}

/// Bytes of the first character when it is a blank, else 0.
std::size_t leadingBlank(std::string_view text) {
  std::string_view rest = text;
  const std::optional<char32_t> character = utf8::takeCharacter(rest);
  return character && isBlank(*character) ? text.size() - rest.size() : 0;
}

/// Bytes of the last character when it is a blank, else 0.
std::size_t closingBlank(std::string_view text) {
  std::size_t begin = text.size() - 1;
  while (begin > 0 && !beginsCharacter(text[begin])) --begin;
  return leadingBlank(text.substr(begin)) == text.size() - begin ? text.size() - begin : 0;
}

}  // namespace

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  std::size_t units = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!beginsCharacter(text[i])) continue;
    units += unitsOf(text[i]);
    if (units > count) return text.substr(0, i);
  }
  return text;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && leadingBlank(text) > 0) text.remove_prefix(leadingBlank(text));
  while (!text.empty() && closingBlank(text) > 0) text.remove_suffix(closingBlank(text));
  return text;
}

}  // namespace tks

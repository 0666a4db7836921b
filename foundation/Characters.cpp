#include "foundation/Characters.h"

namespace tks {
namespace {

bool beginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

/// A character of four bytes takes two UTF-16 units.
std::size_t unitsOf(char firstByte) { return static_cast<unsigned char>(firstByte) >= 0xF0 ? 2 : 1; }

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

}  // namespace tks

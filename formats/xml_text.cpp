#include "formats/xml_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

#include "foundation/values/Utf8.h"

namespace tks::formats {
namespace {

/// The character that a reference names, whether or not it may stand there.
std::optional<char32_t> namedCharacter(std::string_view name) {
  constexpr std::array<std::pair<std::string_view, char32_t>, 5> kEntities = {
      {{"amp", U'&'}, {"lt", U'<'}, {"gt", U'>'}, {"quot", U'"'}, {"apos", U'\''}}};
  for (const auto& [entity, character] : kEntities) {
    if (name == entity) return character;
  }
  if (!name.starts_with('#')) return std::nullopt;
  const bool hexadecimal = name.starts_with("#x");
  const std::string_view digits = name.substr(hexadecimal ? 2 : 1);
  std::uint32_t code = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, failure] = std::from_chars(digits.data(), end, code, hexadecimal ? 16 : 10);
  if (failure != std::errc() || stop != end) return std::nullopt;
  return static_cast<char32_t>(code);
}

/// The longest reference of XML with its "&" and ";".
constexpr std::size_t kLongestReference = 12;

}  // namespace

bool isXmlCharacter(char32_t character) {
  return character == '\t' || character == '\n' || character == '\r' || (character >= 0x20 && character <= 0xD7FF) ||
         (character >= 0xE000 && character <= 0xFFFD) || (character >= 0x10000 && character <= 0x10FFFF);
}

bool hasOnlyXmlCharacters(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r') return false;
    if (byte == 0xEF && (text.substr(i).starts_with("\xEF\xBF\xBE") || text.substr(i).starts_with("\xEF\xBF\xBF"))) {
      return false;
    }
  }
  return true;
}

std::optional<char32_t> xmlReference(std::string_view name, References taken) {
  const std::optional<char32_t> character = namedCharacter(name);
  if (!character) return std::nullopt;
  const bool isTaken =
      taken == References::ofXml ? isXmlCharacter(*character) : *character != 0 && *character <= 0x10FFFF;
  return isTaken ? character : std::nullopt;
}

bool appendCharacterData(std::string& text, std::string_view raw, References taken) {
  const std::size_t longest = taken == References::ofXml ? kLongestReference : std::string_view::npos;
  for (;;) {
    const std::size_t plain = std::min(raw.find('&'), raw.size());
    text.append(raw.substr(0, plain));
    raw.remove_prefix(plain);
    if (raw.empty()) return true;
    const std::size_t end = raw.substr(0, longest).find(';');
    if (end == std::string_view::npos) return false;
    const std::optional<char32_t> character = xmlReference(raw.substr(1, end - 1), taken);
    if (!character) return false;
    utf8::append(text, *character);
    raw.remove_prefix(end + 1);
  }
}

}  // namespace tks::formats

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// What texts in XML have in common, whichever list they stand in.

namespace tks::formats {

/// What XML counts as white space.
inline constexpr std::string_view kXmlBlanks = " \t\r\n";

constexpr bool isXmlBlank(char character) { return kXmlBlanks.find(character) != std::string_view::npos; }

/// A text without the blanks of XML at both ends.
constexpr std::string_view withoutXmlBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kXmlBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kXmlBlanks) - first + 1);
}

/// Whether XML has a character at all (XML 1.0, 2.2).
bool isXmlCharacter(char32_t character);
/// Whether XML has all characters of a text in UTF-8: neither control characters nor U+FFFE and U+FFFF.
bool hasOnlyXmlCharacters(std::string_view text);

/// Which references are taken.
enum class References {
  /// Characters that XML has, named in ten characters at most.
  ofXml,
  /// Any character but U+0000, however long its number is written: as the platform reads what it signed itself.
  ofAnything,
};

/// The character that a reference (XML 1.0, 4.1 and 4.6) stands for, named without "&" and ";": "amp", "#65", "#x41".
/// Nothing when it stands for none.
std::optional<char32_t> xmlReference(std::string_view name, References taken = References::ofXml);

/// Appends character data in UTF-8, with the characters that its references stand for. False when a reference is
/// unknown or unfinished. Line ends stay as they are, as the platform has it, although XML would have them all become
/// LF.
bool appendCharacterData(std::string& text, std::string_view raw, References taken = References::ofXml);

}  // namespace tks::formats

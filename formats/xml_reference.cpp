#include "formats/xml_reference.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

namespace tks::gnulinux {

std::optional<char32_t> xmlReference(std::string_view name) {
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

}  // namespace tks::gnulinux

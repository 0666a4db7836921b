#include "foundation/values/Utf8.h"

#include <cstring>

namespace tks::utf8 {
namespace {

constexpr std::size_t lengthFrom(unsigned char first) noexcept {
  if (first < 0x80) return 1;
  if (first < 0xC2) return 0;
  if (first < 0xE0) return 2;
  if (first < 0xF0) return 3;
  return first < 0xF5 ? 4 : 0;
}

constexpr bool isCharacter(char32_t character, std::size_t length) noexcept {
  constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  return character >= kSmallest[length] && character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
}

}  // namespace

std::optional<char32_t> takeCharacter(std::string_view& text) noexcept {
  const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const std::size_t length = lengthFrom(byteAt(0));
  char32_t character = length == 1 ? byteAt(0) : byteAt(0) & (0x7Fu >> length);
  bool whole = length != 0 && length <= text.size();
  for (std::size_t i = 1; whole && i < length; ++i) {
    whole = byteAt(i) >> 6 == 2;
    character = character << 6 | (byteAt(i) & 0x3Fu);
  }
  whole = whole && isCharacter(character, length);
  text.remove_prefix(whole ? length : 1);
  if (!whole) return std::nullopt;
  return character;
}

void append(std::string& text, char32_t character) {
  const auto put = [&](char32_t byte) { text += static_cast<char>(byte); };
  const auto putRest = [&](unsigned shift) { put(0x80 | (character >> shift & 0x3F)); };
  if (character < 0x80) return put(character);
  if (character < 0x800) {
    put(0xC0 | character >> 6);
    return putRest(0);
  }
  if (character < 0x10000) {
    put(0xE0 | character >> 12);
  } else {
    put(0xF0 | character >> 18);
    putRest(12);
  }
  putRest(6);
  putRest(0);
}

namespace {

/// How many ASCII bytes stand at the front.
std::size_t asciiAhead(std::string_view text) noexcept {
  using Bytes = std::uint64_t;
  constexpr Bytes kBeyondAscii = 0x8080'8080'8080'8080u;
  std::size_t done = 0;
  for (; text.size() - done >= 2 * sizeof(Bytes); done += 2 * sizeof(Bytes)) {
    Bytes bytes[2];
    std::memcpy(bytes, text.data() + done, sizeof bytes);
    if (((bytes[0] | bytes[1]) & kBeyondAscii) != 0) break;
  }
  while (done < text.size() && static_cast<unsigned char>(text[done]) < 0x80) ++done;
  return done;
}

}  // namespace

bool isAscii(std::string_view text) noexcept { return asciiAhead(text) == text.size(); }

bool isValid(std::string_view text) noexcept {
  for (text.remove_prefix(asciiAhead(text)); !text.empty(); text.remove_prefix(asciiAhead(text))) {
    // Letters beyond ASCII often stand side by side.
    do {
      if (!takeCharacter(text)) return false;
    } while (!text.empty() && static_cast<unsigned char>(text.front()) >= 0x80);
  }
  return true;
}

}  // namespace tks::utf8

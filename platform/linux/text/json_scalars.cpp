#include "platform/linux/text/json_scalars.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>
#include <system_error>

namespace tks::gnulinux {
namespace {

using simdjson::error_code;

/// What the letter after a backslash stands for; 0 for a letter that stands for nothing, and for 'u'.
char unescaped(char letter) noexcept {
  switch (letter) {
    case '"':
    case '\\':
    case '/':
      return letter;
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return 0;
  }
}

/// Reads the letter u and four hex digits after a backslash, and moves past them. Negative when they are none.
std::int32_t readUnit(const char*& next, const char* end) noexcept {
  constexpr std::ptrdiff_t kLength = 5;
  if (end - next < kLength || *next != 'u') return -1;
  std::uint32_t unit = 0;
  const auto [stopped, error] = std::from_chars(next + 1, next + kLength, unit, 16);
  if (error != std::errc() || stopped != next + kLength) return -1;
  next += kLength;
  return static_cast<std::int32_t>(unit);
}

/// Reads the code point of one or two escaped UTF-16 units, from after the first backslash. Negative when it is none.
std::int32_t readCodePoint(const char*& next, const char* end) noexcept {
  const std::int32_t first = readUnit(next, end);
  if (first < 0xD800 || first > 0xDFFF) return first;
  if (first > 0xDBFF || next == end || *next++ != '\\') return -1;
  const std::int32_t second = readUnit(next, end);
  if (second < 0xDC00 || second > 0xDFFF) return -1;
  return 0x10000 + ((first - 0xD800) << 10) + (second - 0xDC00);
}

char* writeUtf8(char* to, std::int32_t codePoint) noexcept {
  const auto add = [&to](std::int32_t byte) { *to++ = static_cast<char>(byte); };
  const auto addRest = [&](int shift) { add(0x80 | (codePoint >> shift & 0x3F)); };
  if (codePoint < 0x80) {
    add(codePoint);
  } else if (codePoint < 0x800) {
    add(0xC0 | codePoint >> 6);
    addRest(0);
  } else if (codePoint < 0x10000) {
    add(0xE0 | codePoint >> 12);
    addRest(6);
    addRest(0);
  } else {
    add(0xF0 | codePoint >> 18);
    addRest(12);
    addRest(6);
    addRest(0);
  }
  return to;
}

/// Writes what stands between two quotes without its escapes, which makes it no longer. Returns the end, or a null
/// pointer for a bad escape.
char* unescape(std::string_view text, char* to) noexcept {
  const char* next = text.data();
  const char* const end = next + text.size();
  while (next != end) {
    const auto rest = static_cast<std::size_t>(end - next);
    const void* const found = std::memchr(next, '\\', rest);
    const std::size_t plain =
        found != nullptr ? static_cast<std::size_t>(static_cast<const char*>(found) - next) : rest;
    std::memcpy(to, next, plain);
    to += plain;
    next += plain;
    if (next == end) break;
    if (++next == end) return nullptr;
    if (*next == 'u') {
      const std::int32_t codePoint = readCodePoint(next, end);
      if (codePoint < 0) return nullptr;
      to = writeUtf8(to, codePoint);
    } else {
      *to = unescaped(*next++);
      if (*to++ == 0) return nullptr;
    }
  }
  return to;
}

/// A number that is no integer of 64 bits.
error_code readReal(const char* begin, const char* end, double& real) noexcept {
  if (const auto [stopped, error] = std::from_chars(begin, end, real); error == std::errc()) {
    return stopped == end ? simdjson::SUCCESS : simdjson::NUMBER_ERROR;
  }
  // Too great, or so small that it counts as zero.
  real = simdjson::internal::from_chars(begin, end);
  return std::isfinite(real) ? simdjson::SUCCESS : simdjson::NUMBER_ERROR;
}

}  // namespace

error_code readOddJsonText(value::StackBuilder& builder, const char* begin, const char* end) {
  const std::string_view text(begin, static_cast<std::size_t>(end - begin));
  if (text.find('\\') == text.npos) return builder.text(text, false), simdjson::SUCCESS;
  const auto write = [text](char* to) { return unescape(text, to); };
  return builder.writtenText(text.size(), write) ? simdjson::SUCCESS : simdjson::STRING_ERROR;
}

error_code readLongJsonNumber(value::StackBuilder& builder, const char* begin, const char* end) {
  std::int64_t integer = 0;
  if (const auto [stopped, error] = std::from_chars(begin, end, integer); error == std::errc() && stopped == end) {
    builder.integer(integer);
    return simdjson::SUCCESS;
  }
  std::uint64_t large = 0;
  if (const auto [stopped, error] = std::from_chars(begin, end, large); error == std::errc() && stopped == end) {
    builder.unsignedInteger(large);
    return simdjson::SUCCESS;
  }
  double real = 0;
  if (const error_code error = readReal(begin, end, real)) return error;
  builder.real(real);
  return simdjson::SUCCESS;
}

}  // namespace tks::gnulinux

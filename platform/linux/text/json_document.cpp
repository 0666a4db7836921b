#include "platform/linux/text/json_document.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <system_error>

#include "foundation/values/Sixteen.h"
#include "platform/linux/processes/kept_memory.h"

namespace tks::gnulinux {
namespace {

using simdjson::error_code;

constexpr std::size_t kDeepestNesting = 512;

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }
bool isBlank(char c) noexcept { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }
/// Whether a number or a word ends here: up to the next token, what follows a blank are blanks.
bool endsAt(const char* at, const char* bound) noexcept { return at == bound || isBlank(*at); }

// Texts.

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

/// Whether one of sixteen bytes is a backslash.
bool haveBackslash(const char* bytes) noexcept { return !isZero(marksOf(sixteenAt(bytes) == '\\')); }

// Numbers.

/// A number that is no integer of 64 bits.
error_code readReal(const char* begin, const char* end, double& real) noexcept {
  if (const auto [stopped, error] = std::from_chars(begin, end, real); error == std::errc()) {
    return stopped == end ? simdjson::SUCCESS : simdjson::NUMBER_ERROR;
  }
  // Too great, or so small that it counts as zero.
  real = simdjson::internal::from_chars(begin, end);
  return std::isfinite(real) ? simdjson::SUCCESS : simdjson::NUMBER_ERROR;
}

/// Moves past one digit or more. False when there is none.
bool skipDigits(const char*& next, const char* bound) noexcept {
  const char* const begin = next;
  while (next != bound && isDigit(*next)) ++next;
  return next != begin;
}

/// Moves past the fraction and exponent of a number. False for mistakes in them.
bool skipFractionAndExponent(const char*& next, const char* bound) noexcept {
  if (next != bound && *next == '.' && !skipDigits(++next, bound)) return false;
  if (next == bound || (*next != 'e' && *next != 'E')) return true;
  if (++next != bound && (*next == '+' || *next == '-')) ++next;
  return skipDigits(next, bound);
}

class Document {
 public:
  Document(const JsonTokens& tokens, std::span<value::StackBuilder::Slot> stack) noexcept
      : text_(tokens.text.data()),
        end_(text_ + tokens.text.size()),
        token_(tokens.begins.data()),
        lastToken_(token_ + tokens.begins.size()),
        builder_(stack.data(), expectedBytes(tokens)) {
    if (expectedBytes(tokens) < KeptMemory::kLeast) return;
    const std::span<char> memory = KeptMemory::take(expectedBytes(tokens));
    if (!memory.empty()) builder_.useMemory(memory, KeptMemory::giveBack);
  }

  [[gnu::flatten]] error_code read(TKSValue& value) {
    error_code error = readValue(next());
    while (error == simdjson::SUCCESS && depth_ > 0) error = readOn();
    if (error != simdjson::SUCCESS) return error;
    if (token_ != lastToken_) return simdjson::TAPE_ERROR;
    value = builder_.take();
    return simdjson::SUCCESS;
  }

 private:
  struct Level {
    value::StackBuilder::Mark first;
    char closing;
  };

  /// Every second token is a value, and long texts take their length.
  static std::size_t expectedBytes(const JsonTokens& tokens) noexcept {
    return tokens.mostOpenValues() * sizeof(TKSValue) + tokens.text.size();
  }

  /// The first character of the next token, where `at_` stands then; 0 after the last one.
  char next() noexcept {
    if (token_ == lastToken_) return 0;
    at_ = text_ + *token_++;
    return *at_;
  }
  /// Where the next token begins.
  const char* bound() const noexcept { return token_ == lastToken_ ? end_ : text_ + *token_; }

  /// One element or member of the innermost list, with what stands before it, or the end of the list.
  error_code readOn() {
    const Level& level = levels_[depth_ - 1];
    char c = next();
    if (c == level.closing) {
      close(level);
      return simdjson::SUCCESS;
    }
    if (builder_.mark() != level.first) {
      if (c != ',') return simdjson::TAPE_ERROR;
      c = next();
    }
    if (level.closing == '}') {
      if (c != '"') return simdjson::TAPE_ERROR;
      if (const error_code error = readText()) return error;
      if (next() != ':') return simdjson::TAPE_ERROR;
      c = next();
    }
    return readValue(c);
  }

  error_code readValue(char c) {
    switch (c) {
      case '"':
        return readText();
      case '{':
        return open('}');
      case '[':
        return open(']');
      case 't':
        if (!isWord("true")) return simdjson::T_ATOM_ERROR;
        builder_.boolean(true);
        return simdjson::SUCCESS;
      case 'f':
        if (!isWord("false")) return simdjson::F_ATOM_ERROR;
        builder_.boolean(false);
        return simdjson::SUCCESS;
      case 'n':
        if (!isWord("null")) return simdjson::N_ATOM_ERROR;
        builder_.null();
        return simdjson::SUCCESS;
      default:
        return isDigit(c) || c == '-' ? readNumber() : simdjson::TAPE_ERROR;
    }
  }

  error_code open(char closing) noexcept {
    if (depth_ == kDeepestNesting) return simdjson::DEPTH_ERROR;
    levels_[depth_++] = {builder_.mark(), closing};
    return simdjson::SUCCESS;
  }

  void close(const Level& level) {
    if (level.closing == '}') {
      builder_.endDictionary(level.first);
    } else {
      builder_.endArray(level.first);
    }
    --depth_;
  }

  bool isWord(std::string_view word) const noexcept {
    const char* const end = bound();
    return static_cast<std::size_t>(end - at_) >= word.size() && std::memcmp(at_, word.data(), word.size()) == 0 &&
           endsAt(at_ + word.size(), end);
  }

  error_code readText() {
    const char* const begin = at_ + 1;
    const char* quote = bound();
    do {
      if (quote == begin) return simdjson::STRING_ERROR;
    } while (*--quote != '"');  // blanks follow the closing quote
    const auto size = static_cast<std::size_t>(quote - begin);

    const auto withoutEscapes = [&](char* to) { return unescape({begin, size}, to); };
    const bool isReadable = static_cast<std::size_t>(end_ - begin) >= size + value::kBytesBehind;
    if (isReadable && !value::Access::fits(size)) {
      return isText(builder_.textWithout('\\', {begin, size}, withoutEscapes));
    }
    if (isReadable && !haveBackslash(begin)) {
      builder_.shortText(begin, size);
    } else if (std::memchr(begin, '\\', size) == nullptr) {
      builder_.text({begin, size}, isReadable);
    } else {
      return isText(builder_.writtenText(size, withoutEscapes));
    }
    return simdjson::SUCCESS;
  }
  static error_code isText(bool written) noexcept { return written ? simdjson::SUCCESS : simdjson::STRING_ERROR; }

  error_code readNumber() {
    const char* const end = bound();
    const bool isNegative = *at_ == '-';
    const char* next = at_ + (isNegative ? 1 : 0);
    const char* const digits = next;
    std::uint64_t magnitude = 0;
    while (next != end && isDigit(*next)) magnitude = 10 * magnitude + static_cast<std::uint64_t>(*next++ - '0');
    if (next == digits || (*digits == '0' && next != digits + 1)) return simdjson::NUMBER_ERROR;
    if (endsAt(next, end) && next - digits <= std::numeric_limits<std::int64_t>::digits10) {
      const auto integer = static_cast<std::int64_t>(magnitude);
      builder_.integer(isNegative ? -integer : integer);
      return simdjson::SUCCESS;
    }
    if (!skipFractionAndExponent(next, end) || !endsAt(next, end)) return simdjson::NUMBER_ERROR;
    return addLongNumber(next);
  }

  error_code addLongNumber(const char* end) {
    std::int64_t integer = 0;
    if (const auto [stopped, error] = std::from_chars(at_, end, integer); error == std::errc() && stopped == end) {
      builder_.integer(integer);
      return simdjson::SUCCESS;
    }
    std::uint64_t large = 0;
    if (const auto [stopped, error] = std::from_chars(at_, end, large); error == std::errc() && stopped == end) {
      builder_.unsignedInteger(large);
      return simdjson::SUCCESS;
    }
    double real = 0;
    if (const error_code error = readReal(at_, end, real)) return error;
    builder_.real(real);
    return simdjson::SUCCESS;
  }

  const char* const text_;
  const char* const end_;
  const std::uint32_t* token_;
  const std::uint32_t* const lastToken_;
  const char* at_ = nullptr;
  value::StackBuilder builder_;
  std::size_t depth_ = 0;
  Level levels_[kDeepestNesting];
};

}  // namespace

error_code readJsonDocument(const JsonTokens& tokens, std::span<value::StackBuilder::Slot> stack, TKSValue& value) {
  const char first = tokens.begins.empty() ? '\0' : tokens.text[tokens.begins[0]];
  if (first != '{' && first != '[') return simdjson::INCORRECT_TYPE;
  return Document(tokens, stack).read(value);
}

}  // namespace tks::gnulinux

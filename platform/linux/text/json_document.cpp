#include "platform/linux/text/json_document.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

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
[[gnu::noinline]] char* unescape(std::string_view text, char* to) noexcept {
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

/// Those that a real holds exactly, as far as they are needed.
constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,
                                   1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19};
/// Whether a quotient is rounded once.
constexpr bool kDividesExactly = FLT_EVAL_METHOD == 0;

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

/// One with escapes, or a short one near the end of all.
[[gnu::noinline]] error_code readOddText(value::StackBuilder& builder, const char* begin, const char* end) {
  const std::string_view text(begin, static_cast<std::size_t>(end - begin));
  if (text.find('\\') == text.npos) return builder.text(text, false), simdjson::SUCCESS;
  const auto write = [text](char* to) { return unescape(text, to); };
  return builder.writtenText(text.size(), write) ? simdjson::SUCCESS : simdjson::STRING_ERROR;
}

/// One of many digits, or with an exponent.
[[gnu::noinline]] error_code readLongNumber(value::StackBuilder& builder, const char* begin, const char* end) {
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

/// An open list: how many values stood on the stack before its own, and how it ends.
struct Level {
  std::size_t first;
  char closing;
};
struct Levels {
  Level levels[kDeepestNesting + 1];
};

bool endsWithClosing(const JsonTokens& tokens) noexcept {
  if (tokens.begins.empty()) return false;
  const char last = tokens.text[tokens.begins.back()];
  return last == '}' || last == ']';
}

/// Nobody else learns the address of a document: what changes with each token can stay in registers.
class Document {
 public:
  /// `outermost`: the first of `Levels`. The last window ends with a closing bracket or brace, or a zero byte stands
  /// after it.
  Document(JsonWindows& windows, const JsonTokens& tokens, JsonValueStack& stack, Level* outermost)
      : windows_(windows),
        stack_(stack),
        end_(tokens.text.data() + (windows.isWhole() ? tokens.text : windows.text()).size()),
        outermost_(outermost),
        level_(outermost),
        builder_(stack.slots(), expectedBytes(windows.text().size(), tokens)) {
    use(tokens);
    const std::size_t expected = expectedBytes(windows.text().size(), tokens);
    if (expected < KeptMemory::kLeast) return;
    const std::span<char> memory = KeptMemory::take(expected);
    if (!memory.empty()) builder_.useMemory(memory, KeptMemory::giveBack);
  }

  error_code read(TKSValue& value) {
    char c = next();
    for (;;) {
      if (c == '{' || c == '[') {
        if (const error_code error = open(c)) return error;
        if (const error_code error = lookAhead()) return error;
        c = next();
        if (c != level_->closing) {
          if (level_->closing == '}') {
            if (const error_code error = readKey(c)) return error;
          }
          continue;
        }
        builder_.emptyList(c == '}' ? TKSValue::Kind::dictionary : TKSValue::Kind::array);
        --level_;
      } else if (const error_code error = readScalar(c)) {
        return error;
      }

      while (level_ != outermost_) {
        if (const error_code error = lookAhead()) return error;
        c = next();
        if (c == ',') break;
        if (c != level_->closing) return simdjson::TAPE_ERROR;
        close();
      }
      if (level_ == outermost_) break;
      c = next();
      if (level_->closing == '}') {
        if (const error_code error = readKey(c)) return error;
      }
    }
    if (token_ != lastToken_ || !windows_.isLast()) return simdjson::TAPE_ERROR;
    value = builder_.take();
    return simdjson::SUCCESS;
  }

 private:
  /// Every second token is a value, and long texts take their length. What follows the first window is as dense.
  static std::size_t expectedBytes(std::size_t textSize, const JsonTokens& first) noexcept {
    const std::size_t values = first.mostOpenValues() * sizeof(TKSValue);
    return textSize + (first.text.size() == textSize ? values : textSize / first.text.size() * values);
  }

  void use(const JsonTokens& tokens) {
    text_ = tokens.text.data();
    token_ = tokens.begins.data();
    lastToken_ = token_ + tokens.begins.size();
    limit_ = windows_.isLast() ? lastToken_ : lastToken_ - JsonWindows::kTokensAhead;
    std::size_t wanted = builder_.size() + tokens.mostOpenValues();
    if (wanted <= stack_.size()) return;
    std::unique_ptr<JsonValueStack::Slot[]> larger = stack_.larger(wanted);
    builder_.moveTo(larger.get());
    stack_.replaceBy(std::move(larger), wanted);
  }

  /// Makes sure that the next value, with what stands before it, can be read.
  error_code lookAhead() {
    if (token_ < limit_) return simdjson::SUCCESS;
    if (windows_.isLast()) return simdjson::TAPE_ERROR;
    if (const error_code error = windows_.goTo(bound())) return error;
    if (windows_.isLast() && !endsWithClosing(windows_.tokens())) return simdjson::TAPE_ERROR;
    use(windows_.tokens());
    return simdjson::SUCCESS;
  }

  /// The first character of the next token, where `at_` stands then.
  char next() noexcept {
    at_ = text_ + *token_++;
    return *at_;
  }
  /// Where the next token begins.
  const char* bound() const noexcept { return text_ + *token_; }

  /// The name of a member, up to where its value begins, whose first character `c` is then.
  error_code readKey(char& c) {
    if (c != '"') return simdjson::TAPE_ERROR;
    if (const error_code error = readText()) return error;
    if (next() != ':') return simdjson::TAPE_ERROR;
    c = next();
    return simdjson::SUCCESS;
  }

  error_code readScalar(char c) {
    if (c == '"') return readText();
    if (isDigit(c) || c == '-') return readNumber();
    switch (c) {
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
        return simdjson::TAPE_ERROR;
    }
  }

  error_code open(char opening) noexcept {
    if (level_ == outermost_ + kDeepestNesting) return simdjson::DEPTH_ERROR;
    *++level_ = {builder_.size(), opening == '{' ? '}' : ']'};
    return simdjson::SUCCESS;
  }

  void close() {
    const auto kind = level_->closing == '}' ? TKSValue::Kind::dictionary : TKSValue::Kind::array;
    builder_.endList(kind, builder_.markOf(level_->first));
    --level_;
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

    const bool placed = value::Access::fits(size) ? static_cast<std::size_t>(end_ - begin) >= value::kBytesBehind &&
                                                        builder_.shortTextWithout('\\', begin, size)
                                                  : builder_.longTextWithout('\\', {begin, size});
    return placed ? simdjson::SUCCESS : aside(readOddText, begin, quote);
  }

  /// Has something rare done by a function of its own, to a builder at another address.
  template <class... Arguments>
  error_code aside(error_code (*function)(value::StackBuilder&, Arguments...), Arguments... arguments) {
    value::StackBuilder builder = std::move(builder_);
    const error_code error = function(builder, arguments...);
    builder_ = std::move(builder);
    return error;
  }

  error_code readNumber() {
    const char* const end = bound();
    const bool isNegative = *at_ == '-';
    const char* next = at_ + (isNegative ? 1 : 0);
    const char* const digits = next;
    std::uint64_t magnitude = 0;
    while (isDigit(*next)) magnitude = 10 * magnitude + static_cast<std::uint64_t>(*next++ - '0');
    if (next == digits || (*digits == '0' && next != digits + 1)) return simdjson::NUMBER_ERROR;
    if (endsAt(next, end) && next - digits <= std::numeric_limits<std::int64_t>::digits10) {
      const auto integer = static_cast<std::int64_t>(magnitude);
      builder_.integer(isNegative ? -integer : integer);
      return simdjson::SUCCESS;
    }
    if (kDividesExactly && *next == '.' && addPlainReal(magnitude, digits, next, isNegative)) return simdjson::SUCCESS;
    if (!skipFractionAndExponent(next, end) || !endsAt(next, end)) return simdjson::NUMBER_ERROR;
    return aside(readLongNumber, static_cast<const char*>(at_), next);
  }
  /// One of few digits: a whole number and a power of ten that a real holds exactly, whose quotient is the nearest
  /// real.
  bool addPlainReal(std::uint64_t magnitude, const char* digits, const char* point, bool isNegative) noexcept {
    constexpr std::uint64_t kLargest = std::uint64_t{1} << std::numeric_limits<double>::digits;
    constexpr std::ptrdiff_t kMostDigits = std::numeric_limits<std::uint64_t>::digits10;
    const char* next = point + 1;
    while (isDigit(*next)) magnitude = 10 * magnitude + static_cast<std::uint64_t>(*next++ - '0');
    const std::ptrdiff_t decimals = next - point - 1;
    if (decimals == 0 || next - digits - 1 > kMostDigits || magnitude > kLargest || !endsAt(next, bound()))
      return false;
    const double real = static_cast<double>(magnitude) / kPowersOfTen[decimals];
    builder_.real(isNegative ? -real : real);
    return true;
  }

  JsonWindows& windows_;
  JsonValueStack& stack_;
  const char* text_ = nullptr;
  const char* const end_;
  const std::uint32_t* token_ = nullptr;
  const std::uint32_t* limit_ = nullptr;
  const std::uint32_t* lastToken_ = nullptr;
  const char* at_ = nullptr;
  Level* const outermost_;
  Level* level_;
  value::StackBuilder builder_;
};

[[gnu::flatten]] error_code read(JsonWindows& windows, const JsonTokens& tokens, JsonValueStack& stack,
                                 TKSValue& value) {
  Levels levels;
  return Document(windows, tokens, stack, levels.levels).read(value);
}

}  // namespace

std::unique_ptr<JsonValueStack::Slot[]> JsonValueStack::larger(std::size_t& wanted) const {
  wanted = std::max(wanted, 2 * size_);
  return std::make_unique_for_overwrite<Slot[]>(wanted);
}

void JsonValueStack::replaceBy(std::unique_ptr<Slot[]> larger, std::size_t size) noexcept {
  slots_ = std::move(larger);
  size_ = size;
}

error_code readJsonDocument(JsonWindows& windows, JsonValueStack& stack, TKSValue& value) {
  const JsonTokens& tokens = windows.tokens();
  const char first = tokens.begins.empty() ? '\0' : tokens.text[tokens.begins[0]];
  if (first != '{' && first != '[') return simdjson::INCORRECT_TYPE;
  if (!windows.isLast() || endsWithClosing(tokens)) return read(windows, tokens, stack, value);
  // An error in any case: which one, a copy tells, after which a zero byte can be read.
  const std::string copy(tokens.text);
  return read(windows, {copy, tokens.begins}, stack, value);
}

}  // namespace tks::gnulinux

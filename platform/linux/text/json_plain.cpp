#include "platform/linux/text/json_plain.h"

#include <bit>
#include <cstring>

#include "foundation/values/Sixteen.h"
#include "foundation/values/ValueBuilder.h"
#include "platform/linux/text/json_document.h"
#include "platform/linux/text/json_scalars.h"

namespace tks::gnulinux {
namespace {

using Slot = value::StackBuilder::Slot;

/// A value takes a byte at least, and so does what stands between it and the next one; a list takes two.
constexpr std::size_t kMostValues = kLargestPlainJson / 2;
constexpr std::size_t kMostLevels = kLargestPlainJson / 2;
static_assert(kMostLevels <= kDeepestJson);
/// As many as most have.
constexpr std::size_t kFewLists = 3;

/// Bytes beyond ASCII, control characters and backslashes.
Sixteen oddIn(Sixteen bytes) noexcept {
  using Signed [[gnu::vector_size(16)]] = signed char;
  return marksOf(reinterpret_cast<Signed>(bytes) < ' ') | marksOf(bytes == '\\');
}
/// What stands between values.
Sixteen separatorsIn(Sixteen bytes) noexcept { return marksOf(bytes == ',') | marksOf(bytes == ':'); }

std::size_t sumOf(Sixteen bytes) noexcept {
  using Words [[gnu::vector_size(16)]] = std::uint64_t;
  constexpr std::uint64_t kEvenBytes = 0x00FF'00FF'00FF'00FFu;
  const auto words = reinterpret_cast<Words>(bytes);
  const auto pairs = (words & kEvenBytes) + (words >> 8 & kEvenBytes);
  return (pairs[0] + pairs[1]) * 0x0001'0001'0001'0001u >> 48;
}

/// The last bytes of a text, fewer than sixteen, and zeros after them.
[[gnu::noinline]] Sixteen lastBytes(const char* place, const char* end) noexcept {
  constexpr std::size_t kWord = sizeof(std::uint64_t);
  const std::size_t count = static_cast<std::size_t>(end - place);
  if constexpr (std::endian::native != std::endian::little) {
    char bytes[2 * kWord] = {};
    std::memcpy(bytes, place, count);
    return sixteenAt(bytes);
  }
  // By shifts: to read together what was just written in parts takes long.
  std::uint64_t words[2];
  std::memcpy(words, end - sizeof words, sizeof words);
  if (count <= kWord) {
    words[0] = count == 0 ? 0 : words[1] >> 8 * (kWord - count);
    words[1] = 0;
  } else {
    const std::size_t surplus = 8 * (2 * kWord - count);
    words[0] = words[0] >> surplus | words[1] << (64 - surplus);
    words[1] >>= surplus;
  }
  using Words [[gnu::vector_size(16)]] = std::uint64_t;
  return reinterpret_cast<Sixteen>(Words{words[0], words[1]});
}

/// Whether a text of sixteen bytes or more is a candidate, and about how many values it has.
bool isPlain(std::string_view text, std::size_t& values) noexcept {
  constexpr std::size_t kStride = sizeof(Sixteen);
  static_assert(kLargestPlainJson / kStride < 256);
  const std::size_t last = text.size() - kStride;
  Sixteen odd = oddIn(sixteenAt(text.data() + last));
  for (std::size_t done = 0; done < last; done += kStride) odd |= oddIn(sixteenAt(text.data() + done));
  if (haveMark(odd)) return false;
  Sixteen counts = separatorsIn(sixteenAt(text.data() + last));
  for (std::size_t done = 0; done < last; done += kStride) counts += separatorsIn(sixteenAt(text.data() + done));
  values = sumOf(-counts) + 1;
  return true;
}

/// Reads a text that ends with a closing bracket or brace: whatever else is looked at has something after it.
class PlainDocument {
 public:
  PlainDocument(std::string_view text, std::size_t values, Slot* stack, JsonLevel* outermost) noexcept
      : at_(text.data()),
        end_(at_ + text.size()),
        outermost_(outermost),
        level_(outermost),
        builder_(stack, text.size() + kFewLists * sizeof(value::List) + values * sizeof(TKSValue)) {}

  bool read(TKSValue& value) {
    char c = next();
    if (c != '{' && c != '[') return false;
    for (;;) {
      if (c == '{' || c == '[') {
        if (level_ == outermost_ + kMostLevels) return false;
        *++level_ = {builder_.size(), c == '{' ? '}' : ']'};
        c = next();
        if (c != level_->closing) {
          if (level_->closing == '}' && !readKey(c)) return false;
          continue;
        }
        builder_.emptyList(c == '}' ? TKSValue::Kind::dictionary : TKSValue::Kind::array);
        --level_;
      } else if (!readScalar(c)) {
        return false;
      }
      if (!closeLists()) return false;
      if (level_ == outermost_) break;
      c = next();
      if (level_->closing == '}' && !readKey(c)) return false;
    }
    if (at_ != end_) return false;
    value = builder_.take();
    return true;
  }

 private:
  /// The next character that is no blank, past which it moves. Only while there is one.
  char next() noexcept {
    while (*at_ == ' ') ++at_;
    return *at_++;
  }

  /// After a value: moves past the closing of lists and then past a comma, unless the outermost list is closed.
  bool closeLists() {
    while (level_ != outermost_) {
      if (at_ == end_) return false;
      const char c = next();
      if (c == ',') return true;
      if (c != level_->closing) return false;
      const auto kind = c == '}' ? TKSValue::Kind::dictionary : TKSValue::Kind::array;
      builder_.endList(kind, builder_.markOf(level_->first));
      --level_;
    }
    return true;
  }

  /// The name of a member, up to the first character of its value, which `c` is then.
  bool readKey(char& c) {
    if (c != '"' || !readText() || next() != ':') return false;
    c = next();
    return true;
  }

  bool readScalar(char c) {
    if (c == '"') return readText();
    --at_;
    if (isJsonDigit(c) || c == '-') return readNumber();
    if (take("true")) return builder_.boolean(true), true;
    if (take("false")) return builder_.boolean(false), true;
    if (take("null")) return builder_.null(), true;
    return false;
  }

  bool take(std::string_view word) noexcept {
    if (static_cast<std::size_t>(end_ - at_) < word.size() || std::memcmp(at_, word.data(), word.size()) != 0) {
      return false;
    }
    at_ += word.size();
    return true;
  }

  /// What stands after it, whoever asks for the next character sees.
  bool readNumber() {
    const auto endsAt = [](const char* at) { return *at != '.' && *at != 'e' && *at != 'E'; };
    return readJsonNumber(builder_, at_, end_, endsAt) == simdjson::SUCCESS;
  }

  /// The sixteen bytes from a place on; zeros stand for those after the text.
  Sixteen bytesAt(const char* place) const noexcept {
    return end_ - place >= std::ptrdiff_t{sizeof(Sixteen)} ? sixteenAt(place) : lastBytes(place, end_);
  }

  /// From after its opening quote on.
  bool readText() {
    const char* const begin = at_;
    const Sixteen first = bytesAt(begin);
    const Sixteen quotes = marksOf(first == '"');
    if (!haveMark(quotes)) return readLongText();
    const std::size_t size = firstMarked(quotes);
    at_ = begin + size + 1;
    if (value::Access::fits(size)) {
      builder_.shortText(first, size);
    } else {
      builder_.longText({begin, size});
    }
    return true;
  }

  /// One of sixteen bytes or more. The processor foresees the way through it before it knows the bytes.
  bool readLongText() {
    constexpr std::ptrdiff_t kStride = sizeof(Sixteen);
    const char* const begin = at_;
    for (const char* next = begin + kStride; next < end_; next += kStride) {
      const Sixteen quotes = marksOf(bytesAt(next) == '"');
      if (!haveMark(quotes)) continue;
      const char* const quote = next + firstMarked(quotes);
      builder_.longText({begin, static_cast<std::size_t>(quote - begin)});
      at_ = quote + 1;
      return true;
    }
    return false;
  }

  const char* at_;
  const char* const end_;
  JsonLevel* const outermost_;
  JsonLevel* level_;
  value::StackBuilder builder_;
};

[[gnu::flatten]] bool read(std::string_view text, std::size_t values, TKSValue& value) {
  Slot stack[kMostValues];
  JsonLevel levels[kMostLevels + 1];
  return PlainDocument(text, values, stack, levels).read(value);
}

}  // namespace

bool readPlainJson(std::string_view text, TKSValue& value) {
  constexpr std::size_t kSmallest = sizeof(Sixteen);
  if (text.size() < kSmallest || text.size() > kLargestPlainJson) return false;
  if (text.back() != '}' && text.back() != ']') return false;
  std::size_t values = 0;
  return isPlain(text, values) && read(text, values, value);
}

}  // namespace tks::gnulinux

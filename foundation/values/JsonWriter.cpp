#include "foundation/values/JsonWriter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>

#include <tksinterface/TKSConstants.h>

#include "foundation/values/ErrorReasons.h"
#include "foundation/values/IntegerText.h"
#include "foundation/values/OutOfMemory.h"
#include "foundation/values/RealText.h"
#include "foundation/values/Sixteen.h"
#include "foundation/values/Utf8.h"
#include "foundation/values/ValueNodes.h"
#include "foundation/values/WorkList.h"

namespace tks::json {
namespace {

using Kind = TKSValue::Kind;
using value::Access;

/// The text so far. Its end stands on a stage of fixed size, so that a short text is copied once, to where it stays.
/// Who writes keeps the place to write at in a local variable: as a member it would be reloaded after every store.
class Output {
 public:
  /// How much may be written between two calls of `room`.
  static constexpr std::size_t kMostAtOnce = 64;

  /// Appends to `text`.
  explicit Output(std::string& text) noexcept : text_(text) {}

  char* begin() noexcept { return stage_; }
  /// Where to go on writing after `out`.
  char* room(char* out) {
    if (out <= stage_ + sizeof stage_ - kMostAtOnce) [[likely]] {
      return out;
    }
    flush(out);
    return stage_;
  }
  void flush(char* out) { text_.append(stage_, static_cast<std::size_t>(out - stage_)); }
  /// Writes any number of bytes, many of them past the stage; returns where to go on.
  char* append(char* out, const char* bytes, std::size_t size) {
    constexpr std::size_t kMany = 1024;
    if (size < kMany) {
      if (out > stage_ + sizeof stage_ - kMostAtOnce - kMany) {
        flush(out);
        out = stage_;
      }
      std::memcpy(out, bytes, size);
      return out + size;
    }
    flush(out);
    text_.append(bytes, size);
    return stage_;
  }
  /// Makes room for many bytes that will follow, so that it does not grow step by step.
  void expect(std::size_t size) { text_.reserve(text_.size() + sizeof stage_ + size); }

 private:
  std::string& text_;
  char stage_[8192];
};

/// For every byte what stands for it in a text: itself (0), a letter after a backslash, or 'u' for four hex digits.
constexpr std::array<char, 256> kEscapes = [] {
  std::array<char, 256> escapes{};
  for (std::size_t c = 0; c < 0x20; ++c) escapes[c] = 'u';
  escapes['\b'] = 'b';
  escapes['\f'] = 'f';
  escapes['\n'] = 'n';
  escapes['\r'] = 'r';
  escapes['\t'] = 't';
  escapes['"'] = '"';
  escapes['\\'] = '\\';
  return escapes;
}();

char* writeByte(char* out, char c) noexcept {
  constexpr char kHexDigits[] = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  const char escape = kEscapes[byte];
  if (escape == 0) {
    *out++ = c;
    return out;
  }
  *out++ = '\\';
  *out++ = escape;
  if (escape == 'u') {
    *out++ = '0';
    *out++ = '0';
    *out++ = kHexDigits[byte >> 4];
    *out++ = kHexDigits[byte & 0xF];
  }
  return out;
}

static_assert(sizeof(Sixteen) <= value::kBytesBehind);

/// All bits of each byte that is to be escaped.
Sixteen escapedIn(Sixteen bytes) noexcept { return marksOf((bytes < ' ') | (bytes == '"') | (bytes == '\\')); }

/// How many bytes at the front stand for themselves, in ASCII or beyond it.
std::size_t plainBytes(Sixteen bytes) noexcept { return firstMarked(escapedIn(bytes)); }

/// So many bytes of a long text are looked at together.
constexpr std::size_t kStride = 64;
/// Long texts are scanned and copied in chunks of this size, while they are in the cache.
constexpr std::size_t kLargestPiece = 16384;
/// For a shorter text the way by pieces takes longer.
constexpr std::size_t kWorthPieces = 256;

/// How many bytes stand for themselves from the front of a piece of a text up to a stride with one that is to be
/// escaped; all that were looked at are added to `seen`. The length of the piece is a multiple of `kStride`.
std::size_t unescapedBytes(const char* piece, std::size_t size, Sixteen& seen) noexcept {
  Sixteen all = seen;
  std::size_t done = 0;
  for (; done < size; done += kStride) {
    Sixteen escaped{};
    for (std::size_t i = 0; i < kStride; i += sizeof(Sixteen)) {
      const Sixteen bytes = sixteenAt(piece + done + i);
      all |= bytes;
      escaped |= escapedIn(bytes);
    }
    if (!isZero(escaped)) break;
  }
  seen = all;
  return done;
}

/// What keeps a value from being written.
enum class Problem { none, topLevel, nothing, data, date, notANumber, infinite, notUtf8 };

const char* describe(Problem problem) noexcept {
  switch (problem) {
    case Problem::none:
      return "";
    case Problem::topLevel:
      return "Invalid top-level type in JSON write";
    case Problem::nothing:
      return "Invalid type in JSON write ((null))";
    case Problem::data:
      return "Invalid type in JSON write (data)";
    case Problem::date:
      return "Invalid type in JSON write (date)";
    case Problem::notANumber:
      return "Invalid number value (NaN) in JSON write";
    case Problem::infinite:
      return "Invalid number value (infinite) in JSON write";
    case Problem::notUtf8:
      return "Invalid text in JSON write (not UTF-8)";
  }
  return "";
}

class Writer {
 public:
  /// Appends to `text`.
  explicit Writer(std::string& text) noexcept : output_(text) {}

  Problem write(const TKSValue& outermost) {
    if (!isList(outermost)) return Problem::topLevel;
    char* out = open(output_.begin(), outermost);
    while (problem_ == Problem::none && !levels_.empty()) {
      Level& level = levels_.top();
      out = output_.room(out);
      if (level.next == level.end) {
        *out++ = level.kind == Kind::array ? ']' : '}';
        levels_.pop();
      } else {
        out = writeNext(out, level);
      }
    }
    if (problem_ == Problem::none) output_.flush(out);
    return problem_;
  }

 private:
  struct Level {
    const TKSValue* next;
    const TKSValue* end;
    Kind kind;
    bool isFirst;
  };

  static bool isList(const TKSValue& value) noexcept { return value.isArray() || value.isDictionary(); }

  char* open(char* out, const TKSValue& list) {
    *out++ = list.isArray() ? '[' : '{';
    const std::span<const TKSValue> values = Access::values(list);
    levels_.push({values.data(), values.data() + values.size(), list.kind(), true});
    return out;
  }

  char* writeNext(char* out, Level& level) {
    if (!level.isFirst) *out++ = ',';
    level.isFirst = false;
    if (level.kind == Kind::dictionary) {
      out = writeText(out, *level.next++);
      out = output_.room(out);
      *out++ = ':';
    }
    const TKSValue& value = *level.next++;
    if (value.isText()) return writeText(out, value);
    return isList(value) ? open(out, value) : writeScalar(out, value);
  }

  char* writeScalar(char* out, const TKSValue& value) noexcept {
    switch (value.kind()) {
      case Kind::null:
        return copied(out, "null");
      case Kind::boolean:
        return copied(out, value.boolean() ? "true" : "false");
      case Kind::integer:
        return writeInteger(out, out + Output::kMostAtOnce / 2, value);
      case Kind::real:
        return writeReal(out, value.real());
      case Kind::data:
        problem_ = Problem::data;
        return out;
      case Kind::date:
        problem_ = Problem::date;
        return out;
      default:
        problem_ = Problem::nothing;
        return out;
    }
  }

  char* writeReal(char* out, double real) noexcept {
    if (real == 0 && std::signbit(real)) return copied(out, "-0.0");  // "-0" would read as an integer
    if (std::isfinite(real)) return tks::writeReal(out, real);
    problem_ = std::isnan(real) ? Problem::notANumber : Problem::infinite;
    return out;
  }

  static char* copied(char* out, std::string_view text) noexcept {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
  }

  char* writeText(char* out, const TKSValue& text) {
    const std::string_view bytes = Access::bytes(text);
    *out++ = '"';
    if (Access::isShared(text)) {
      out = writeContent(out, bytes.data(), bytes.size());
    } else {
      out = writeShort(out, text, bytes.size());
    }
    *out++ = '"';
    return out;
  }

  /// The bytes of a short text are followed by zeros or by their number, so that the first bytes that are not plain are
  /// those after the text.
  char* writeShort(char* out, const TKSValue& text, std::size_t size) {
    char padded[sizeof text + value::kBytesBehind];
    std::memcpy(padded, static_cast<const void*>(&text), sizeof text);
    std::memcpy(out, padded, sizeof text);
    const Sixteen bytes = sixteenAt(padded);
    if (plainBytes(bytes) == size && areAscii(bytes)) [[likely]] {
      return out + size;
    }
    std::memset(padded + size, 0, sizeof padded - size);
    return writeContent(out, padded, size);
  }

  /// Writes sixteen bytes at a time, up to the end or to the end of as many as a stride without one to be escaped.
  char* writeStrides(char* out, const char*& next, const char* end, Sixteen& seen) {
    Sixteen all = seen;
    for (const char* plainFrom = next; next < end && next - plainFrom < std::ptrdiff_t{kStride};) {
      out = output_.room(out);
      const Sixteen bytes = sixteenAt(next);
      std::memcpy(out, &bytes, sizeof bytes);
      all |= bytes;
      const std::size_t plain = plainBytes(bytes);
      out += plain;
      next += plain;
      if (plain == sizeof bytes) continue;
      if (next >= end) break;
      out = writeByte(out, *next++);
      plainFrom = next;
    }
    seen = all;
    return out;
  }

  /// The content is followed by `kBytesBehind` zeros.
  char* writeContent(char* out, const char* next, std::size_t size) {
    const std::string_view content(next, size);
    const char* const end = next + size;
    Sixteen seen{};
    if (size > kLargestPiece) output_.expect(size);
    while (next < end) {
      const auto left = static_cast<std::size_t>(end - next);
      if (left >= kWorthPieces) {
        const std::size_t plain = unescapedBytes(next, std::min(left / kStride * kStride, kLargestPiece), seen);
        out = output_.append(out, next, plain);
        next += plain;
      }
      out = writeStrides(out, next, end, seen);
    }
    if (!areAscii(seen) && !utf8::isValid(content)) problem_ = Problem::notUtf8;
    return out;
  }

  Problem problem_ = Problem::none;
  Output output_;
  WorkList<Level> levels_;
};

}  // namespace

bool append(const TKSValue& value, std::string& out, TKSError* error) {
  const std::size_t before = out.size();
  try {
    const Problem problem = Writer(out).write(value);
    if (problem == Problem::none) return true;
    if (error != nullptr) *error = makeError(TKSErrorReason::invalidArgument, commonErrorDomain, 0, describe(problem));
  } catch (const std::bad_alloc&) {
    setOutOfMemory(error);
  }
  out.resize(before);
  return false;
}

std::optional<std::string> write(const TKSValue& value, TKSError* error) {
  std::string text;
  if (!append(value, text, error)) return std::nullopt;
  return text;
}

}  // namespace tks::json

#include "foundation/JsonWriter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>

#include <tksinterface/TKSConstants.h>

#include "foundation/OutOfMemory.h"
#include "foundation/RealText.h"
#include "foundation/Utf8.h"
#include "foundation/ValueNodes.h"
#include "foundation/WorkList.h"

namespace tks::json {
namespace {

using Kind = TKSValue::Kind;
using value::Access;

/// The text so far: its end stands in the object itself, so that a short text is copied once, to where it stays.
class Output {
 public:
  static constexpr std::size_t kMostAtOnce = 64;

  explicit Output(std::string& text) : text_(text) {}

  /// Where to write on: there is room for `kMostAtOnce` bytes. Hand the end of what was written to `advance`.
  char* room() {
    if (static_cast<std::size_t>(stage_ + sizeof stage_ - end_) < kMostAtOnce) flush();
    return end_;
  }
  void advance(char* end) noexcept { end_ = end; }
  void append(char c) {
    *room() = c;
    ++end_;
  }

  void flush() {
    text_.append(stage_, static_cast<std::size_t>(end_ - stage_));
    end_ = stage_;
  }

 private:
  std::string& text_;
  char stage_[8192];
  char* end_ = stage_;
};

/// For every byte what stands for it in a text: itself (0), a letter behind a backslash, or 'u' for four hex digits.
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

/// Sixteen bytes of a text; every question is answered for all of them at once.
using Sixteen [[gnu::vector_size(16)]] = signed char;
static_assert(sizeof(Sixteen) <= value::kBytesBehind);

/// How many bytes at the front stand for themselves; others are to be escaped or are beyond ASCII (negative).
std::size_t plainBytes(Sixteen bytes) noexcept {
  const auto others = (bytes < ' ') | (bytes == '"') | (bytes == '\\');
  const auto [low, high] = std::bit_cast<std::array<std::uint64_t, 2>>(others);
  const auto firstOf = [](std::uint64_t word) {
    const bool little = std::endian::native == std::endian::little;
    return static_cast<std::size_t>(little ? std::countr_zero(word) : std::countl_zero(word)) / 8;
  };
  return low != 0 ? firstOf(low) : 8 + firstOf(high);
}

class Writer {
 public:
  /// Writes behind what `out` holds.
  explicit Writer(std::string& out) : output_(out) {}

  /// Answers what kept the value from being written, or a null pointer.
  const char* write(const TKSValue& outermost) {
    if (!isList(outermost)) return "Invalid top-level type in JSON write";
    open(outermost);
    while (!levels_.empty()) {
      Level& level = levels_.top();
      if (level.next == level.end) {
        output_.append(level.kind == Kind::array ? ']' : '}');
        levels_.pop();
        continue;
      }
      if (const char* const problem = writeNext(level)) return problem;
    }
    output_.flush();
    return nullptr;
  }

 private:
  struct Level {
    const TKSValue* next;
    const TKSValue* end;
    Kind kind;
    bool isFirst;
  };

  static bool isList(const TKSValue& value) noexcept { return value.isArray() || value.isDictionary(); }

  void open(const TKSValue& list) {
    output_.append(list.isArray() ? '[' : '{');
    const std::span<const TKSValue> values = Access::values(list);
    levels_.push({values.data(), values.data() + values.size(), list.kind(), true});
  }

  const char* writeNext(Level& level) {
    if (!level.isFirst) output_.append(',');
    level.isFirst = false;
    if (level.kind == Kind::dictionary) {
      if (const char* const problem = writeText(*level.next++)) return problem;
      output_.append(':');
    }
    const TKSValue& value = *level.next++;
    if (value.isText()) return writeText(value);
    if (isList(value)) {
      open(value);
      return nullptr;
    }
    return writeScalar(value);
  }

  const char* writeScalar(const TKSValue& value) {
    char* const out = output_.room();
    switch (value.kind()) {
      case Kind::null:
        output_.advance(copied(out, "null"));
        return nullptr;
      case Kind::boolean:
        output_.advance(copied(out, value.boolean() ? "true" : "false"));
        return nullptr;
      case Kind::integer:
        output_.advance(std::to_chars(out, out + Output::kMostAtOnce, value.integer()).ptr);
        return nullptr;
      case Kind::real:
        if (std::isnan(value.real())) return "Invalid number value (NaN) in JSON write";
        if (std::isinf(value.real())) return "Invalid number value (infinite) in JSON write";
        output_.advance(writeReal(out, value.real()));
        return nullptr;
      case Kind::data:
        return "Invalid type in JSON write (data)";
      case Kind::date:
        return "Invalid type in JSON write (date)";
      default:
        return "Invalid type in JSON write (null)";
    }
  }

  static char* copied(char* out, std::string_view text) noexcept {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
  }

  const char* writeText(const TKSValue& text) {
    const std::string_view bytes = Access::bytes(text);
    if (Access::isShared(text)) return writeText(bytes.data(), bytes.size());
    char padded[sizeof(TKSValue) + value::kBytesBehind] = {};
    std::memcpy(padded, static_cast<const void*>(&text), sizeof text);
    return writeText(padded, bytes.size());
  }

  /// `next` has `kBytesBehind` readable bytes behind its end.
  const char* writeText(const char* next, std::size_t size) {
    const std::string_view text(next, size);
    bool isAscii = true;
    output_.append('"');
    for (std::size_t left = size; left > 0;) {
      char* out = output_.room();
      Sixteen bytes;
      std::memcpy(&bytes, next, sizeof bytes);
      std::memcpy(out, &bytes, sizeof bytes);
      std::size_t done = std::min(plainBytes(bytes), left);
      out += done;
      if (done < sizeof bytes && done < left) {
        isAscii = isAscii && next[done] >= 0;
        out = writeByte(out, next[done++]);
      }
      next += done;
      left -= done;
      output_.advance(out);
    }
    output_.append('"');
    return isAscii || utf8::isValid(text) ? nullptr : "Invalid text in JSON write (not UTF-8)";
  }

  Output output_;
  WorkList<Level> levels_;
};

}  // namespace

bool append(const TKSValue& value, std::string& out, TKSError* error) {
  const std::size_t before = out.size();
  try {
    const char* const problem = Writer(out).write(value);
    if (problem == nullptr) return true;
    if (error != nullptr) *error = TKSError{std::string(commonErrorDomain), 0, problem};
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

#include "platform/json.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string>

#include <simdjson.h>
#include <sys/mman.h>

#include "foundation/OutOfMemory.h"
#include "foundation/ValueBuilder.h"
#include "platform/backend.h"

namespace tks::platform {
namespace {

namespace dom = simdjson::dom;

constexpr std::size_t kDeepestNesting = 512;
constexpr std::size_t kSmallestCapacity = 4096;
/// A parser that was made for a longer text than this is not kept: it takes about fifteen times the length.
constexpr std::size_t kLargestKeptCapacity = std::size_t{1} << 20;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// The words in which simdjson lays down what it has read, one behind the other: a type in the upper eight bits, and
/// below it what belongs to the type.
struct Word {
  std::uint64_t bits;

  char type() const noexcept { return static_cast<char>(bits >> 56); }
  /// Of a text: where it stands among the texts.
  std::size_t offset() const noexcept { return bits & 0x00FF'FFFF'FFFF'FFFF; }
  /// Of the first word of all: how many words there are.
  std::size_t words() const noexcept { return offset(); }
  /// Of an array or object: how many elements or members it has, or the greatest number that fits.
  std::size_t count() const noexcept { return bits >> 32 & 0xFF'FFFF; }
};

std::string_view textAt(const std::uint8_t* texts, std::size_t offset) noexcept {
  std::uint32_t length;
  std::memcpy(&length, texts + offset, sizeof length);
  return {reinterpret_cast<const char*>(texts + offset + sizeof length), length};
}

/// Asks the system for large pages in memory of many megabytes that is about to be filled: a fault for every page of
/// four KiB takes longer than what is done in it.
void preferLargePages(const void* memory, std::size_t size) noexcept {
  constexpr std::uintptr_t kLargePage = std::uintptr_t{2} << 20;
  const auto address = reinterpret_cast<std::uintptr_t>(memory);
  const std::uintptr_t begin = (address + kLargePage - 1) / kLargePage * kLargePage;
  const std::uintptr_t end = (address + size) / kLargePage * kLargePage;
  if (begin < end) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

/// Turns the words of a document into a value, from front to back. Members come as a text and then a value, so keys
/// need no care of their own. Nothing when it is nested too deep.
TKSValue valueOf(const dom::document& document, std::size_t textLength) {
  const std::uint64_t* const words = document.tape.get();
  const std::uint8_t* const texts = document.string_buf.get();
  value::Builder builder(sizeof(TKSValue) * Word{words[0]}.words() + textLength);
  const std::span<char> memory = builder.reserve();
  preferLargePages(memory.data(), memory.size());
  std::size_t depth = 0;
  for (const std::uint64_t* next = words + 1;; ++next) {
    const Word word{*next};
    switch (word.type()) {
      case '"':
        builder.readableText(textAt(texts, word.offset()));
        break;
      case 'l':
        builder.integer(static_cast<std::int64_t>(*++next));
        break;
      case 'u':
        builder.real(static_cast<double>(*++next));
        break;
      case 'd':
        builder.real(std::bit_cast<double>(*++next));
        break;
      case 't':
        builder.boolean(true);
        break;
      case 'f':
        builder.boolean(false);
        break;
      case 'n':
        builder.null();
        break;
      case '[':
        if (++depth > kDeepestNesting) return {};
        builder.beginArray(word.count());
        break;
      case ']':
        --depth;
        builder.endArray();
        break;
      case '{':
        if (++depth > kDeepestNesting) return {};
        builder.beginDictionary(word.count());
        break;
      case '}':
        --depth;
        builder.endDictionary();
        break;
      default:  // the end
        return builder.take();
    }
  }
}

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

/// Whether a number is an integer beyond 64 bits. One with superfluous zeros, a mistake, is none.
bool isLongInteger(std::string_view number) noexcept {
  std::int64_t ignored;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), ignored);
  return error == std::errc::result_out_of_range && end == number.data() + number.size() &&
         number[number.starts_with('-') ? 1 : 0] != '0';
}

/// The text with an exponent behind every long integer, so that simdjson, which refuses integers beyond 64 bits, reads
/// them as reals.
std::string withLongIntegersAsReals(std::string_view text) {
  const auto belongsToNumber = [](char c) {
    return isDigit(c) || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
  };
  std::string out;
  out.reserve(text.size() + 64);
  bool inText = false;
  for (std::size_t i = 0; i < text.size();) {
    const char c = text[i];
    if (inText || !belongsToNumber(c)) {
      const std::size_t length = inText && c == '\\' && i + 1 < text.size() ? 2 : 1;
      inText = inText != (c == '"');
      out.append(text, i, length);
      i += length;
      continue;
    }
    const char* const end = std::find_if_not(text.data() + i, text.data() + text.size(), belongsToNumber);
    const std::string_view number(text.data() + i, static_cast<std::size_t>(end - text.data()) - i);
    out += number;
    if (isLongInteger(number)) out += "e0";
    i += number.size();
  }
  return out;
}

/// A parser with the memory it works in. It grows with the longest text so far.
class Reader {
 public:
  simdjson::error_code read(std::string_view text) {
    if (text.empty()) return simdjson::EMPTY;
    if (const simdjson::error_code error = reserve(text.size())) return error;
    std::memcpy(padded_.get(), text.data(), text.size());
    std::memset(padded_.get() + text.size(), 0, simdjson::SIMDJSON_PADDING);
    return parser_.parse(padded_.get(), text.size(), false).error();
  }
  const dom::document& document() const noexcept { return parser_.doc; }
  bool isWorthKeeping() const noexcept { return capacity_ <= kLargestKeptCapacity; }

 private:
  simdjson::error_code reserve(std::size_t length) {
    if (length <= capacity_) return simdjson::SUCCESS;
    if (length > simdjson::SIMDJSON_MAXSIZE_BYTES) return simdjson::CAPACITY;
    const std::size_t rounded = length > kLargestKeptCapacity ? length : std::bit_ceil(length);
    const std::size_t capacity = std::max(rounded, kSmallestCapacity);
    capacity_ = 0;
    padded_.reset();
    padded_.reset(new char[capacity + simdjson::SIMDJSON_PADDING]);
    if (const simdjson::error_code error = parser_.doc.allocate(capacity)) return error;
    // simdjson counts the document as a level, and an innermost array as none when it is empty.
    if (const simdjson::error_code error = parser_.allocate(capacity, kDeepestNesting + 1)) return error;
    capacity_ = capacity;
    preferLargePages(padded_.get(), capacity);
    preferLargePages(parser_.doc.tape.get(), sizeof(std::uint64_t) * capacity);
    preferLargePages(parser_.doc.string_buf.get(), capacity);
    preferLargePages(parser_.implementation->structural_indexes.get(), sizeof(std::uint32_t) * capacity);
    return simdjson::SUCCESS;
  }

  std::size_t capacity_ = 0;
  std::unique_ptr<char[]> padded_;  // a copy of the text: simdjson reads beyond the end
  dom::parser parser_;
};

/// Each thread's own reader, between two uses. What is read while the thread ends does without.
thread_local bool threadIsEnding = false;
struct KeptReader {
  std::unique_ptr<Reader> reader;
  ~KeptReader() { threadIsEnding = true; }
};
thread_local KeptReader kept;

/// Takes the thread's reader for a scope.
class BorrowedReader {
 public:
  BorrowedReader() : reader_(threadIsEnding ? nullptr : std::move(kept.reader)) {
    if (reader_ == nullptr) reader_ = std::make_unique<Reader>();
  }
  ~BorrowedReader() {
    if (!threadIsEnding && reader_->isWorthKeeping()) kept.reader = std::move(reader_);
  }
  BorrowedReader(const BorrowedReader&) = delete;
  BorrowedReader& operator=(const BorrowedReader&) = delete;

  Reader* operator->() const noexcept { return reader_.get(); }

 private:
  std::unique_ptr<Reader> reader_;
};

TKSValue fail(TKSError* error, std::string_view reason) {
  constexpr std::int64_t kReadCorrupt = 3840;
  if (error != nullptr) {
    *error = TKSError{"NSCocoaErrorDomain", kReadCorrupt, "The text is not in the JSON format: " + std::string(reason)};
  }
  return {};
}

TKSValue parseGuarded(std::string_view text, TKSError* error) {
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  const BorrowedReader reader;
  std::size_t length = text.size();
  simdjson::error_code code = reader->read(text);
  if (code == simdjson::NUMBER_ERROR) {
    const std::string repaired = withLongIntegersAsReals(text);
    length = repaired.size();
    code = reader->read(repaired);
  }
  if (code != simdjson::SUCCESS) return fail(error, simdjson::error_message(code));
  const char outermost = Word{reader->document().tape[1]}.type();
  if (outermost != '{' && outermost != '[') return fail(error, "It is neither an object nor an array.");
  TKSValue value = valueOf(reader->document(), length);
  return value.isNothing() ? fail(error, simdjson::error_message(simdjson::DEPTH_ERROR)) : value;
}

class SimdJson final : public Json {
 public:
  TKSValue parse(std::string_view text, TKSError* error) override {
    try {
      return parseGuarded(text, error);
    } catch (const std::bad_alloc&) {
      setOutOfMemory(error);
      return {};
    }
  }
};

}  // namespace

template <>
Json& backend<Json>() {
  static auto& json = *new SimdJson;
  return json;
}

}  // namespace tks::platform

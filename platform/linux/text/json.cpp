#include "platform/json.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string>

#include <simdjson.h>

#include "foundation/values/OutOfMemory.h"
#include "foundation/values/ValueBuilder.h"
#include "platform/backend.h"
#include "platform/linux/processes/kept_memory.h"
#include "platform/linux/text/json_document.h"
#include "platform/posix/error_reasons.h"

namespace tks::platform {
namespace {

using gnulinux::JsonTokens;

constexpr std::size_t kSmallestCapacity = 4096;
/// A thread keeps no reader that was made for a longer text than this: it takes up to twelve times the length.
constexpr std::size_t kLargestOwnCapacity = std::size_t{1} << 20;
/// No reader is kept that was made for a longer text than this.
constexpr std::size_t kLargestCapacity = std::size_t{16} << 20;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// simdjson's search for tokens, and the memory that reading works in. It grows with the longest text so far.
class Reader {
 public:
  simdjson::error_code read(std::string_view text, TKSValue& value) {
    if (text.empty()) return simdjson::EMPTY;
    if (const simdjson::error_code error = reserve(text.size())) return error;
    // Looks at nothing after the text. simdjson's second stage does, and wants a copy with room after it.
    simdjson::internal::dom_parser_implementation& finder = *parser_.implementation;
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    if (const auto error = finder.stage1(bytes, text.size(), simdjson::stage1_mode::regular)) return error;
    const JsonTokens tokens{text, {finder.structural_indexes.get(), finder.n_structural_indexes}};
    return gnulinux::readJsonDocument(tokens, stackFor(tokens), value);
  }
  std::size_t capacity() const noexcept { return capacity_; }
  /// Until the next reading nobody needs what stands in the memory.
  void rest() noexcept {
    const simdjson::internal::dom_parser_implementation& finder = *parser_.implementation;
    gnulinux::offerPages(finder.structural_indexes.get(), finder.n_structural_indexes * sizeof(std::uint32_t));
  }

 private:
  using Slot = value::StackBuilder::Slot;

  simdjson::error_code reserve(std::size_t length) {
    if (length <= capacity_) return simdjson::SUCCESS;
    if (length > simdjson::SIMDJSON_MAXSIZE_BYTES) return simdjson::CAPACITY;
    const std::size_t rounded = length > kLargestOwnCapacity ? length : std::bit_ceil(length);
    const std::size_t capacity = std::max(rounded, kSmallestCapacity);
    capacity_ = 0;
    if (const simdjson::error_code error = parser_.allocate(capacity, 1)) return error;
    capacity_ = capacity;
    return simdjson::SUCCESS;
  }

  std::span<Slot> stackFor(const JsonTokens& tokens) {
    const std::size_t wanted = tokens.mostOpenValues();
    if (wanted > stackSize_) {
      stackSize_ = 0;
      stack_ = std::make_unique_for_overwrite<Slot[]>(wanted);
      stackSize_ = wanted;
    }
    return {stack_.get(), stackSize_};
  }

  std::size_t capacity_ = 0;
  simdjson::dom::parser parser_;
  std::size_t stackSize_ = 0;
  std::unique_ptr<Slot[]> stack_;
};

/// Each thread's own reader, between two uses. What is read while the thread ends does without.
thread_local bool threadIsEnding = false;
struct OwnReader {
  std::unique_ptr<Reader> reader;
  ~OwnReader() { threadIsEnding = true; }
};
thread_local OwnReader own;

/// The reader for long texts, between two uses: one for all threads.
std::atomic<Reader*> readerForLongTexts = nullptr;

void dropReaderForLongTexts() noexcept { delete readerForLongTexts.exchange(nullptr, std::memory_order_acq_rel); }

/// Takes a reader for a scope.
class BorrowedReader {
 public:
  explicit BorrowedReader(std::string_view text) {
    if (text.size() > kLargestOwnCapacity) {
      reader_.reset(readerForLongTexts.exchange(nullptr, std::memory_order_acq_rel));
    } else if (!threadIsEnding) {
      reader_ = std::move(own.reader);
    }
    if (reader_ == nullptr) reader_ = std::make_unique<Reader>();
  }
  ~BorrowedReader() {
    if (reader_->capacity() <= kLargestOwnCapacity) {
      if (!threadIsEnding) own.reader = std::move(reader_);
    } else if (reader_->capacity() <= kLargestCapacity) {
      reader_->rest();
      gnulinux::KeptMemory::whenDropped(dropReaderForLongTexts);
      reader_.reset(readerForLongTexts.exchange(reader_.release(), std::memory_order_acq_rel));
    }
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
    *error = posix::systemError("NSCocoaErrorDomain", kReadCorrupt,
                                "The text is not in the JSON format: " + std::string(reason));
  }
  return {};
}

TKSValue parseGuarded(std::string_view text, TKSError* error) {
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  const BorrowedReader reader(text);
  TKSValue value;
  const simdjson::error_code code = reader->read(text, value);
  if (code == simdjson::SUCCESS) return value;
  if (code == simdjson::MEMALLOC) throw std::bad_alloc();
  if (code == simdjson::INCORRECT_TYPE) return fail(error, "It is neither an object nor an array.");
  return fail(error, simdjson::error_message(code));
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

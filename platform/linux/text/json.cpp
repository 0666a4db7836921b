#include "platform/json.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include <simdjson.h>

#include "foundation/values/OutOfMemory.h"
#include "platform/backend.h"
#include "platform/linux/processes/kept_memory.h"
#include "platform/linux/text/json_document.h"
#include "platform/linux/text/json_plain.h"
#include "platform/linux/text/json_windows.h"
#include "platform/posix/error_reasons.h"

namespace tks::platform {
namespace {

/// A thread keeps no reader of longer texts than this.
constexpr std::size_t kLargestOwnText = std::size_t{1} << 20;
/// No reader is kept that looked for the tokens of more text than this at once.
constexpr std::size_t kLargestCapacity = std::size_t{16} << 20;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// The memory that reading works in. It grows with what was read so far.
class Reader {
 public:
  simdjson::error_code read(std::string_view text, TKSValue& value) {
    gnulinux::JsonWindows windows(finder_, text);
    simdjson::error_code error = windows.goTo(text.data());
    if (error == simdjson::SUCCESS && windows.isWhole()) return gnulinux::readJsonDocument(windows, stack_, value);
    if (error == simdjson::SUCCESS && gnulinux::readJsonDocument(windows, stack_, value) == simdjson::SUCCESS)
      return error;
    // What is wrong is what is found first in the whole text.
    error = windows.goToWhole();
    return error != simdjson::SUCCESS ? error : gnulinux::readJsonDocument(windows, stack_, value);
  }
  std::size_t capacity() const noexcept { return finder_.capacity(); }

 private:
  gnulinux::JsonTokenFinder finder_;
  gnulinux::JsonValueStack stack_;
};

/// Each thread's own reader, between two uses. What is read while the thread ends does without. Asking for it costs
/// nothing, because it is destroyed by another object.
struct OwnReader {
  Reader* reader;
  bool isKept;
  bool isOver;
};
constinit thread_local OwnReader own{};

struct DestroysOwnReader {
  ~DestroysOwnReader() {
    own.isOver = true;
    delete std::exchange(own.reader, nullptr);
  }
};

[[gnu::noinline, gnu::cold]] void keepOwnReader() {
  static thread_local const DestroysOwnReader atTheEnd;
  own.isKept = true;
}

/// The reader for long texts, between two uses: one for all threads.
std::atomic<Reader*> readerForLongTexts = nullptr;

void dropReaderForLongTexts() noexcept { delete readerForLongTexts.exchange(nullptr, std::memory_order_acq_rel); }

/// Takes a reader for a scope.
class BorrowedReader {
 public:
  explicit BorrowedReader(std::string_view text) : isForLongText_(text.size() > kLargestOwnText) {
    if (isForLongText_) {
      reader_.reset(readerForLongTexts.exchange(nullptr, std::memory_order_acq_rel));
    } else {
      reader_.reset(std::exchange(own.reader, nullptr));
    }
    if (reader_ != nullptr) return;
    reader_ = std::make_unique<Reader>();
    if (!isForLongText_ && !own.isKept) keepOwnReader();
  }
  ~BorrowedReader() {
    if (!isForLongText_) {
      if (!own.isOver) reader_.reset(std::exchange(own.reader, reader_.release()));
    } else if (reader_->capacity() <= kLargestCapacity) {
      gnulinux::KeptMemory::whenDropped(dropReaderForLongTexts);
      reader_.reset(readerForLongTexts.exchange(reader_.release(), std::memory_order_acq_rel));
    }
  }
  BorrowedReader(const BorrowedReader&) = delete;
  BorrowedReader& operator=(const BorrowedReader&) = delete;

  Reader* operator->() const noexcept { return reader_.get(); }

 private:
  const bool isForLongText_;
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
  TKSValue value;
  if (text.size() <= gnulinux::kLargestPlainJson && gnulinux::readPlainJson(text, value)) return value;
  const BorrowedReader reader(text);
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

#include "platform/property_lists.h"

#include <cerrno>
#include <new>
#include <string>
#include <utility>

#include "formats/property_list_binary.h"
#include "formats/property_list_xml.h"
#include "foundation/values/OutOfMemory.h"
#include "platform/backend.h"
#include "platform/posix/error_reasons.h"
#include "platform/posix/paths.h"
#include "platform/posix/whole_files.h"

namespace tks::platform {
namespace {

using namespace formats::property_list;

// The numbers that the platform gives these errors.
constexpr std::int64_t kReadCorrupt = 3840;
constexpr std::int64_t kWriteInvalid = 3852;

bool fail(TKSError* error, std::int64_t code, std::string_view step, const Problem& problem) {
  if (error == nullptr) return false;
  *error = posix::systemError(problem.beyondBounds ? "NSPOSIXErrorDomain" : "NSCocoaErrorDomain",
                              problem.beyondBounds ? EFBIG : code, std::string(step).append(": ").append(problem.text));
  return false;
}

TKSValue read(std::span<const std::uint8_t> content, TKSError* error) {
  Problem problem;
  TKSValue value;
  if (content.size() > kLargestSize) {
    problem.sayBeyondBounds("it is too large");
  } else if (isBinary(content)) {
    value = readBinary(content, problem);
  } else {
    value = readXml(content, problem);
  }
  if (value.isNothing()) fail(error, kReadCorrupt, "read a property list", problem);
  return value;
}

std::optional<TKSData> write(const TKSValue& value, PropertyLists::Format format, TKSError* error) {
  Problem problem;
  std::optional<TKSData> content =
      format == PropertyLists::Format::xml ? writeXml(value, problem) : writeBinary(value, problem);
  if (!content) fail(error, kWriteInvalid, "write a property list", problem);
  return content;
}

/// Lists come from outside and may be as large as the bound allows: memory may run out, and then nothing comes back.
template <class Work>
auto guarded(TKSError* error, Work work) -> decltype(work()) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    setOutOfMemory(error);
    return {};
  }
}

class LinuxPropertyLists final : public PropertyLists {
 public:
  TKSValue parse(std::span<const std::uint8_t> content, TKSError* error) override {
    return guarded(error, [&] { return read(content, error); });
  }

  std::optional<TKSData> serialize(const TKSValue& value, Format format, TKSError* error) override {
    return guarded(error, [&] { return write(value, format, error); });
  }

  std::optional<TKSDictionary> readDictionary(std::string_view path, TKSError* error) override {
    return guarded(error, [&] { return readDictionaryFile(path, error); });
  }

  bool writeDictionary(const TKSDictionary& dictionary, std::string_view path, TKSError* error) override {
    return guarded(error, [&] { return writeDictionaryFile(dictionary, path, error); });
  }

 private:
  static std::optional<TKSDictionary> readDictionaryFile(std::string_view path, TKSError* error) {
    const std::optional<TKSData> content = posix::readWholeFile(path, kLargestSize, error);
    if (!content) return std::nullopt;
    const TKSValue value = read(*content, error);
    if (value.isDictionary()) return value.dictionary();
    if (!value.isNothing()) fail(error, kReadCorrupt, "read a property list", {"its outermost value is no dictionary"});
    return std::nullopt;
  }

  static bool writeDictionaryFile(const TKSDictionary& dictionary, std::string_view path, TKSError* error) {
    std::optional<TKSData> content = write(dictionary, Format::xml, nullptr);
    // Texts and dates that XML does not have are no reason to lose them.
    if (!content) content = write(dictionary, Format::binary, error);
    return content && posix::replaceFile(posix::behindLinks(path), *content, error);
  }
};

}  // namespace

template <>
PropertyLists& backend<PropertyLists>() {
  static auto& lists = *new LinuxPropertyLists;
  return lists;
}

}  // namespace tks::platform

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "formats/byte_output.h"
#include "formats/property_list_binary.h"
#include "formats/property_list_binary_objects.h"
#include "formats/text_numbers.h"
#include "foundation/values/Sixteen.h"
#include "foundation/values/TextCopies.h"
#include "foundation/values/Utf8.h"
#include "foundation/values/ValueNodes.h"

namespace tks::formats::property_list {
namespace {

using Kind = TKSValue::Kind;
using value::Access;

/// Bytes that an unsigned number needs in the list: 1, 2, 4 or 8.
std::size_t widthOf(std::uint64_t number) {
  return number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : number <= 0xFFFFFFFF ? 4 : 8;
}

/// Writes the last bytes of a number, at most eight; returns where they end.
char* written(char* to, std::uint64_t number, std::size_t width) {
  number <<= 8 * (8 - width);
  if constexpr (std::endian::native == std::endian::little) number = __builtin_bswap64(number);
  std::memcpy(to, &number, sizeof number);
  return to + width;
}

/// A whole number as an object.
char* writtenInteger(char* to, std::int64_t number) {
  const std::size_t width = number < 0 ? 8 : widthOf(static_cast<std::uint64_t>(number));
  *to = static_cast<char>(kInteger << 4 | std::countr_zero(width));
  return written(to + 1, static_cast<std::uint64_t>(number), width);
}

/// What any object that has a size begins with.
char* writtenHead(char* to, Marker marker, std::size_t size) {
  *to = static_cast<char>(marker << 4 | static_cast<int>(std::min<std::size_t>(size, 0xF)));
  return size < 0xF ? to + 1 : writtenInteger(to + 1, static_cast<std::int64_t>(size));
}
constexpr std::size_t kLargestHead = 10;

/// First numbers all objects, those of an array or dictionary after it, then writes them. Equal texts are one object.
class BinaryWriter {
 public:
  explicit BinaryWriter(Problem& problem) : problem_(problem) {}

  std::optional<TKSData> write(const TKSValue& value);

 private:
  bool fail(std::string_view what) { return problem_.say(what); }
  bool number(const TKSValue& root);
  bool addItems(const TKSValue& list, std::size_t depth);
  bool add(const TKSValue& value, std::uint32_t& reference);
  bool writeObjects();
  bool writeObject(const TKSValue& value);
  void put(std::uint64_t number, std::size_t width) { out_.wroteTo(written(out_.room(), number, width)); }
  void putInteger(const TKSValue& value);
  void putReal(Marker marker, double number);
  void putHead(Marker marker, std::size_t size) { out_.wroteTo(writtenHead(out_.room(), marker, size)); }
  bool putText(const TKSValue& value);
  bool putLongText(std::string_view text);
  void putItems(Marker marker, std::size_t items);

  Problem& problem_;
  /// Values and keys of dictionaries, by their numbers. They belong to the value that is being written.
  std::vector<const TKSValue*> objects_;
  /// What the arrays and dictionaries hold, one after the other in the order of their numbers.
  std::vector<std::uint32_t> references_;
  const std::uint32_t* nextReference_ = nullptr;
  TextNumbers texts_;
  std::size_t bytesInObjects_ = 0;
  std::vector<std::uint32_t> offsets_;
  std::size_t referenceWidth_ = 1;
  ByteOutput out_;
};

/// Numbers a value, unless it is a text that has a number, and refers to it.
bool BinaryWriter::add(const TKSValue& value, std::uint32_t& reference) {
  if (value.isNothing() || value.isNull()) return fail("property lists have no null");
  const auto number = static_cast<std::uint32_t>(objects_.size());
  reference = value.isText() ? texts_.numberOf(value, number, objects_) : number;
  if (reference != number) return true;
  objects_.push_back(&value);
  if (value.isText() || value.isData()) bytesInObjects_ += Access::bytes(value).size();
  return true;
}

/// Numbers what an array or dictionary holds: all elements, or all keys and then all values.
bool BinaryWriter::addItems(const TKSValue& list, std::size_t depth) {
  if (!list.isArray() && !list.isDictionary()) return true;
  if (depth > kDeepestNesting) return problem_.sayBeyondBounds("it is nested too deeply");
  const std::span<const TKSValue> items = Access::values(list);
  // Every object and every reference takes a byte at least, so this bounds the memory too.
  const std::size_t before = references_.size();
  if (before + items.size() > kLargestSize) return problem_.sayBeyondBounds("it is too large");
  references_.resize(before + items.size());
  std::uint32_t* next = references_.data() + before;
  const std::size_t step = list.isDictionary() ? 2 : 1;
  if (step == 2) texts_.expect(items.size() / 2);
  for (std::size_t first = 0; first < step; ++first) {
    for (std::size_t i = first; i < items.size(); i += step) {
      if (!add(items[i], *next++)) return false;
    }
  }
  return objects_.size() + references_.size() <= kLargestSize || problem_.sayBeyondBounds("it is too large");
}

bool BinaryWriter::number(const TKSValue& root) {
  std::uint32_t numberOfRoot = 0;
  if (!add(root, numberOfRoot)) return false;
  // What stands at one depth has the numbers after what stands above it.
  std::size_t depth = 0;
  std::size_t endOfDepth = 0;
  for (std::size_t i = 0; i < objects_.size(); ++i) {
    if (i == endOfDepth) {
      ++depth;
      endOfDepth = objects_.size();
    }
    if (!addItems(*objects_[i], depth)) return false;
  }
  referenceWidth_ = widthOf(objects_.size() - 1);
  return true;
}

void BinaryWriter::putInteger(const TKSValue& value) {
  if (!value.isUnsignedInteger()) return out_.wroteTo(writtenInteger(out_.room(), value.integer()));
  // Eight bytes would be read with a sign.
  put(static_cast<std::uint64_t>(kInteger) << 4 | 4, 1);
  put(0, 8);
  put(value.unsignedInteger(), 8);
}

void BinaryWriter::putReal(Marker marker, double number) {
  put(static_cast<std::uint64_t>(marker) << 4 | 3, 1);
  put(std::bit_cast<std::uint64_t>(number), 8);
}

/// The UTF-16 units of a text; nothing when it is not UTF-8.
std::optional<std::vector<std::uint16_t>> utf16Of(std::string_view text) {
  std::vector<std::uint16_t> units;
  units.reserve(text.size());
  while (!text.empty()) {
    const std::optional<char32_t> character = utf8::takeCharacter(text);
    if (!character) return std::nullopt;
    if (*character < 0x10000) {
      units.push_back(static_cast<std::uint16_t>(*character));
    } else {
      units.push_back(static_cast<std::uint16_t>(0xD7C0 + (*character >> 10)));
      units.push_back(static_cast<std::uint16_t>(0xDC00 + (*character & 0x3FF)));
    }
  }
  return units;
}

/// Copies an ASCII text, and up to sixteen bytes more, while it looks at it. False, and nothing worth it, with others.
bool copyAscii(char* to, const TKSValue& text) {
  if (Access::isShared(text)) return value::copyWatched(value::BeyondAscii(), to, Access::bytes(text));
  // What stands in the value after a short text is no byte beyond ASCII either.
  Sixteen bytes;
  static_assert(sizeof bytes == sizeof text);
  std::memcpy(&bytes, static_cast<const void*>(&text), sizeof bytes);
  std::memcpy(to, &bytes, sizeof bytes);
  return areAscii(bytes);
}

bool BinaryWriter::putText(const TKSValue& value) {
  const std::string_view text = Access::bytes(value);
  if (text.size() > ByteOutput::kMostAtOnce - kLargestHead - value::kBytesBehind) return putLongText(text);
  char* const to = writtenHead(out_.room(), kAscii, text.size());
  if (!copyAscii(to, value)) return putLongText(text);
  out_.wroteTo(to + text.size());
  return true;
}

bool BinaryWriter::putLongText(std::string_view text) {
  if (utf8::isAscii(text)) {
    putHead(kAscii, text.size());
    out_.append(text);
    return true;
  }
  const std::optional<std::vector<std::uint16_t>> units = utf16Of(text);
  if (!units) return fail("a text is not UTF-8");
  putHead(kUtf16, units->size());
  for (const std::uint16_t unit : *units) put(unit, 2);
  return true;
}

void BinaryWriter::putItems(Marker marker, std::size_t items) {
  putHead(marker, marker == kDictionary ? items / 2 : items);
  constexpr std::size_t kTogether = ByteOutput::kMostAtOnce / 8 - 1;
  for (std::size_t left = items; left > 0;) {
    char* to = out_.room();
    for (std::size_t i = std::min(left, kTogether); i > 0; --i, --left) {
      to = written(to, *nextReference_++, referenceWidth_);
    }
    out_.wroteTo(to);
  }
}

bool BinaryWriter::writeObject(const TKSValue& value) {
  switch (value.kind()) {
    case Kind::boolean:
      put(value.boolean() ? 0x9 : 0x8, 1);
      return true;
    case Kind::integer:
      putInteger(value);
      return true;
    case Kind::real:
      putReal(kReal, value.real());
      return true;
    case Kind::date:
      putReal(kDate, value.date().secondsSince1970 - kSecondsTo2001);
      return true;
    case Kind::text:
      return putText(value);
    case Kind::data:
      putHead(kData, Access::bytes(value).size());
      out_.append(Access::bytes(value));
      return true;
    case Kind::array:
      putItems(kArray, Access::values(value).size());
      return true;
    case Kind::dictionary:
      putItems(kDictionary, Access::values(value).size());
      return true;
    case Kind::nothing:
    case Kind::null:
      break;
  }
  return fail("property lists have no null");
}

bool BinaryWriter::writeObjects() {
  // Most objects take some bytes beside those of texts and data, and an offset.
  constexpr std::size_t kBytesBeside = 8;
  out_.expect(
      std::min(kLargestSize, bytesInObjects_ + objects_.size() * kBytesBeside + references_.size() * referenceWidth_));
  out_.append(kMagic);
  offsets_.reserve(objects_.size());
  nextReference_ = references_.data();
  for (const TKSValue* object : objects_) {
    offsets_.push_back(static_cast<std::uint32_t>(out_.size()));
    if (!writeObject(*object)) return false;
    if (out_.size() > kLargestSize) return problem_.sayBeyondBounds("it is too large");
  }
  return true;
}

std::optional<TKSData> BinaryWriter::write(const TKSValue& root) {
  if (!number(root) || !writeObjects()) return std::nullopt;
  const std::size_t offsetStart = out_.size();
  const std::size_t offsetWidth = widthOf(offsetStart);
  if (offsetStart + offsets_.size() * offsetWidth + kTrailerSize > kLargestSize) {
    problem_.sayBeyondBounds("it is too large");
    return std::nullopt;
  }
  for (const std::uint32_t offset : offsets_) put(offset, offsetWidth);
  put(0, 6);  // unused
  put(offsetWidth, 1);
  put(referenceWidth_, 1);
  put(objects_.size(), 8);
  put(0, 8);
  put(offsetStart, 8);
  return out_.take();
}

}  // namespace

std::optional<TKSData> writeBinary(const TKSValue& value, Problem& problem) {
  return BinaryWriter(problem).write(value);
}

}  // namespace tks::formats::property_list

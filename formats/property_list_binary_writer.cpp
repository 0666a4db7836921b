#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

#include "formats/byte_output.h"
#include "formats/property_list_binary.h"
#include "formats/property_list_binary_objects.h"
#include "formats/text_numbers.h"
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

/// First numbers all objects, those of an array or dictionary after it, then writes them. Equal texts are one object.
class BinaryWriter {
 public:
  explicit BinaryWriter(Problem& problem) : problem_(problem) {}

  std::optional<TKSData> write(const TKSValue& value);

 private:
  /// A value, or the key of a dictionary. It belongs to the value that is being written.
  struct Object {
    const TKSValue* value;
    std::size_t firstReference;
    std::size_t depth;
  };

  bool fail(std::string_view what) { return problem_.say(what); }
  bool number(const TKSValue& root);
  bool add(const TKSValue& value, std::size_t depth);
  bool addItems(std::size_t index);
  bool writeObject(const Object& object);
  void put(std::uint64_t number, std::size_t width) { out_.wroteTo(written(out_.room(), number, width)); }
  void putHead(Marker marker, std::size_t size);
  void putInteger(std::int64_t number);
  void putReal(Marker marker, double number);
  bool putText(std::string_view text);
  void putItems(Marker marker, const Object& object);

  Problem& problem_;
  std::vector<Object> objects_;
  std::vector<std::uint32_t> references_;
  TextNumbers texts_;
  std::size_t referenceWidth_ = 1;
  ByteOutput out_;
};

/// Numbers a value, unless it is a text that has a number, and refers to it.
bool BinaryWriter::add(const TKSValue& value, std::size_t depth) {
  if (value.isNothing() || value.isNull()) return fail("property lists have no null");
  auto number = static_cast<std::uint32_t>(objects_.size());
  if (value.isText()) number = texts_.numberOf(value, number);
  references_.push_back(number);
  if (number == objects_.size()) objects_.push_back({&value, 0, depth});
  // Every object and every reference takes a byte at least, so this bounds the memory too.
  return objects_.size() + references_.size() <= kLargestSize || problem_.sayBeyondBounds("it is too large");
}

/// Numbers what an array or dictionary holds: all elements, or all keys and then all values.
bool BinaryWriter::addItems(std::size_t index) {
  const Object object = objects_[index];
  if (!object.value->isArray() && !object.value->isDictionary()) return true;
  if (object.depth > kDeepestNesting) return problem_.sayBeyondBounds("it is nested too deeply");
  objects_[index].firstReference = references_.size();
  const std::span<const TKSValue> items = Access::values(*object.value);
  const std::size_t step = object.value->isDictionary() ? 2 : 1;
  for (std::size_t first = 0; first < step; ++first) {
    for (std::size_t i = first; i < items.size(); i += step) {
      if (!add(items[i], object.depth + 1)) return false;
    }
  }
  return true;
}

bool BinaryWriter::number(const TKSValue& root) {
  if (!add(root, 1)) return false;
  for (std::size_t i = 0; i < objects_.size(); ++i) {
    if (!addItems(i)) return false;
  }
  referenceWidth_ = widthOf(objects_.size() - 1);
  return true;
}

void BinaryWriter::putInteger(std::int64_t number) {
  const std::size_t width = number < 0 ? 8 : widthOf(static_cast<std::uint64_t>(number));
  put(static_cast<std::uint64_t>(kInteger) << 4 | static_cast<std::uint64_t>(std::countr_zero(width)), 1);
  put(static_cast<std::uint64_t>(number), width);
}

void BinaryWriter::putReal(Marker marker, double number) {
  put(static_cast<std::uint64_t>(marker) << 4 | 3, 1);
  put(std::bit_cast<std::uint64_t>(number), 8);
}

void BinaryWriter::putHead(Marker marker, std::size_t size) {
  put(static_cast<std::uint64_t>(marker) << 4 | std::min<std::size_t>(size, 0xF), 1);
  if (size >= 0xF) putInteger(static_cast<std::int64_t>(size));
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

bool BinaryWriter::putText(std::string_view text) {
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

void BinaryWriter::putItems(Marker marker, const Object& object) {
  const std::size_t items = Access::values(*object.value).size();
  putHead(marker, marker == kDictionary ? items / 2 : items);
  const std::uint32_t* next = references_.data() + object.firstReference;
  constexpr std::size_t kTogether = ByteOutput::kMostAtOnce / 8 - 1;
  for (std::size_t left = items; left > 0;) {
    char* to = out_.room();
    for (std::size_t i = std::min(left, kTogether); i > 0; --i, --left) to = written(to, *next++, referenceWidth_);
    out_.wroteTo(to);
  }
}

bool BinaryWriter::writeObject(const Object& object) {
  const TKSValue& value = *object.value;
  switch (value.kind()) {
    case Kind::boolean:
      put(value.boolean() ? 0x9 : 0x8, 1);
      return true;
    case Kind::integer:
      if (value.isUnsignedInteger()) {
        // Eight bytes would be read with a sign.
        put(static_cast<std::uint64_t>(kInteger) << 4 | 4, 1);
        put(0, 8);
        put(value.unsignedInteger(), 8);
        return true;
      }
      putInteger(value.integer());
      return true;
    case Kind::real:
      putReal(kReal, value.real());
      return true;
    case Kind::date:
      putReal(kDate, value.date().secondsSince1970 - kSecondsTo2001);
      return true;
    case Kind::text:
      return putText(value.text());
    case Kind::data:
      putHead(kData, Access::bytes(value).size());
      out_.append(Access::bytes(value));
      return true;
    case Kind::array:
      putItems(kArray, object);
      return true;
    case Kind::dictionary:
      putItems(kDictionary, object);
      return true;
    case Kind::nothing:
    case Kind::null:
      break;
  }
  return fail("property lists have no null");
}

std::optional<TKSData> BinaryWriter::write(const TKSValue& root) {
  if (!number(root)) return std::nullopt;
  out_.append(kMagic);
  std::vector<std::size_t> offsets;
  offsets.reserve(objects_.size());
  for (const Object& object : objects_) {
    offsets.push_back(out_.size());
    if (!writeObject(object)) return std::nullopt;
    if (out_.size() > kLargestSize) break;
  }
  const std::size_t offsetStart = out_.size();
  const std::size_t offsetWidth = widthOf(offsetStart);
  if (offsetStart + offsets.size() * offsetWidth + kTrailerSize > kLargestSize) {
    problem_.sayBeyondBounds("it is too large");
    return std::nullopt;
  }
  for (const std::size_t offset : offsets) put(offset, offsetWidth);
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

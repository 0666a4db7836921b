#include "platform/linux/property_list_binary.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/linux/property_list_xml.h"

namespace tks::gnulinux::property_list {
namespace {

using Bytes = std::span<const std::uint8_t>;
using Kind = TKSValue::Kind;

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;
constexpr double kSecondsTo2001 = 978307200;
/// What a list may come to when every reference in it is followed: one unit for a value and one for each byte of it.
constexpr std::uint64_t kLargestExpansion = 4 * kLargestSize;

/// The high half of the first byte of an object.
enum Marker : std::uint8_t {
  kSimple = 0x0,
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kAscii = 0x5,
  kUtf16 = 0x6,
  kIdentifier = 0x8,
  kArray = 0xA,
  kOrderedSet = 0xB,
  kSet = 0xC,
  kDictionary = 0xD,
};

/// The number in up to eight bytes.
std::uint64_t bigEndian(Bytes bytes) {
  std::uint64_t number = 0;
  for (const std::uint8_t byte : bytes) number = number << 8 | byte;
  return number;
}

// Reading.

/// Turns the objects of a list into a value. Without recursion: what is open stands in `open_`, and what it holds so
/// far on top of `values_`. Every object is read once; all references to it share the value.
class BinaryReader {
 public:
  BinaryReader(Bytes content, std::string& problem) : content_(content), problem_(problem) {}

  TKSValue read();

 private:
  enum class State : std::uint8_t { unread, open, read };

  struct Object {
    TKSValue value;
    std::uint64_t expansion = 0;
    State state = State::unread;
  };

  /// An array or dictionary that is being read. Items are counted as references: a key and its value are two.
  struct Open {
    std::size_t object;
    std::size_t references;
    std::size_t items;
    std::size_t done;
    std::size_t firstValue;
    std::uint64_t expansion;
    bool isDictionary;
  };

  bool fail(std::string_view what) {
    if (problem_.empty()) problem_ = what;
    return false;
  }

  bool readTrailer();
  bool take(std::uint64_t number);
  bool begin(std::size_t number);
  bool next();
  bool finish();
  bool readObject(std::size_t number);
  std::optional<std::size_t> takeSize(std::size_t& position, std::uint8_t low);
  bool takeBytes(std::size_t position, std::size_t count, std::size_t unit, Bytes& bytes);
  bool open(std::size_t number, std::size_t position, std::size_t count, bool isDictionary);
  bool integer(std::size_t position, std::uint8_t low, TKSValue& value);
  bool real(std::size_t position, std::uint8_t low, double& value);
  bool text(std::uint8_t marker, Bytes bytes, TKSValue& value);
  std::uint64_t referenceAt(const Open& container, std::size_t item) const;

  const Bytes content_;
  std::string& problem_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::size_t offsets_ = 0;
  std::size_t top_ = 0;
  /// Bytes that objects may still take up. Objects of a sound list do not overlap, so together they fit the file.
  std::size_t budget_ = 0;
  std::vector<Object> objects_;
  std::vector<Open> open_;
  std::vector<TKSValue> values_;
};

bool BinaryReader::readTrailer() {
  if (content_.size() < kMagic.size() + kTrailerSize) return fail("it is too short");
  const Bytes trailer = content_.last(kTrailerSize);
  offsetSize_ = trailer[6];
  referenceSize_ = trailer[7];
  const std::uint64_t count = bigEndian(trailer.subspan(8, 8));
  const std::uint64_t top = bigEndian(trailer.subspan(16, 8));
  const std::uint64_t offsets = bigEndian(trailer.subspan(24, 8));
  const std::size_t trailerStart = content_.size() - kTrailerSize;
  if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
    return fail("its trailer names impossible sizes");
  }
  if (offsets < kMagic.size() || offsets > trailerStart || count > (trailerStart - offsets) / offsetSize_ ||
      count > offsets - kMagic.size() || top >= count) {
    return fail("its trailer points beyond the list");
  }
  offsets_ = static_cast<std::size_t>(offsets);
  top_ = static_cast<std::size_t>(top);
  budget_ = offsets_ - kMagic.size();
  objects_.resize(static_cast<std::size_t>(count));
  return true;
}

TKSValue BinaryReader::read() {
  if (!readTrailer() || !take(top_)) return {};
  while (!open_.empty()) {
    if (!next()) return {};
  }
  return std::move(values_.front());
}

/// Puts the value of an object on top of `values_`, or opens the array or dictionary that it is.
bool BinaryReader::take(std::uint64_t number) {
  if (number >= objects_.size()) return fail("a reference points beyond the list");
  const auto index = static_cast<std::size_t>(number);
  switch (objects_[index].state) {
    case State::open:
      return fail("an object holds itself");
    case State::unread:
      if (!readObject(index)) return false;
      if (objects_[index].state == State::open) return true;
      break;
    case State::read:
      break;
  }
  const Object& object = objects_[index];
  if (!open_.empty()) {
    Open& container = open_.back();
    if (container.isDictionary && container.done % 2 == 1 && !object.value.isText()) return fail("a key is no text");
    container.expansion += object.expansion;
    if (container.expansion > kLargestExpansion) return fail("its references stand for too much");
  }
  values_.push_back(object.value);
  return true;
}

/// Reads the next item of the innermost open object, or closes it.
bool BinaryReader::next() {
  Open& container = open_.back();
  if (container.done == container.items) return finish();
  return take(referenceAt(container, container.done++));
}

/// Keys and values are taken in turn, although all keys stand before all values.
std::uint64_t BinaryReader::referenceAt(const Open& container, std::size_t item) const {
  const std::size_t at = container.isDictionary ? item / 2 + item % 2 * (container.items / 2) : item;
  return bigEndian(content_.subspan(container.references + at * referenceSize_, referenceSize_));
}

bool BinaryReader::finish() {
  const Open closed = open_.back();
  open_.pop_back();
  const auto first = values_.begin() + static_cast<std::ptrdiff_t>(closed.firstValue);
  TKSValue value;
  if (closed.isDictionary) {
    std::vector<std::pair<std::string, TKSValue>> entries;
    entries.reserve(closed.items / 2);
    for (auto key = first; key != values_.end(); key += 2) {
      entries.emplace_back(std::string(key->text()), std::move(key[1]));
    }
    value = TKSDictionary(std::move(entries));
  } else {
    value = TKSArray(std::vector<TKSValue>(std::make_move_iterator(first), std::make_move_iterator(values_.end())));
  }
  values_.erase(first, values_.end());
  Object& object = objects_[closed.object];
  object.value = std::move(value);
  object.expansion = closed.expansion;
  object.state = State::read;
  return take(closed.object);
}

bool BinaryReader::open(std::size_t number, std::size_t position, std::size_t count, bool isDictionary) {
  if (open_.size() == kDeepestNesting) return fail("it is nested too deeply");
  Bytes references;
  if (!takeBytes(position, count, (isDictionary ? 2 : 1) * referenceSize_, references)) return false;
  open_.push_back({number, position, isDictionary ? 2 * count : count, 0, values_.size(), 1, isDictionary});
  objects_[number].state = State::open;
  return true;
}

/// The bytes of `count` units behind the head of an object, which must lie before the offsets.
bool BinaryReader::takeBytes(std::size_t position, std::size_t count, std::size_t unit, Bytes& bytes) {
  if (position > offsets_ || count > (offsets_ - position) / unit) return fail("an object reaches beyond its place");
  const std::size_t size = count * unit;
  if (size >= budget_) return fail("objects overlap");
  budget_ -= size + 1;
  bytes = content_.subspan(position, size);
  return true;
}

/// The size of an object whose first byte ended in `low`; moves `position` behind it.
std::optional<std::size_t> BinaryReader::takeSize(std::size_t& position, std::uint8_t low) {
  if (low < 0xF) return low;
  if (position >= offsets_ || content_[position] >> 4 != kInteger) return std::nullopt;
  const std::size_t width = std::size_t{1} << (content_[position] & 0xF);
  ++position;
  if (width > 8 || width > offsets_ - position) return std::nullopt;
  const std::uint64_t size = bigEndian(content_.subspan(position, width));
  position += width;
  if (size > content_.size()) return std::nullopt;
  return static_cast<std::size_t>(size);
}

bool BinaryReader::readObject(std::size_t number) {
  const std::uint64_t offset = bigEndian(content_.subspan(offsets_ + number * offsetSize_, offsetSize_));
  if (offset < kMagic.size() || offset >= offsets_) return fail("an object lies beyond the list");
  auto position = static_cast<std::size_t>(offset);
  const std::uint8_t marker = content_[position] >> 4;
  const std::uint8_t low = content_[position] & 0xF;
  ++position;
  Object& object = objects_[number];
  std::uint64_t size = 0;
  double seconds = 0;
  switch (marker) {
    case kSimple:
      if (low == 0x0) {
        object.value = TKSNull();
      } else if (low == 0x8 || low == 0x9) {
        object.value = low == 0x9;
      } else {
        return fail("an object is of an unknown kind");
      }
      break;
    case kInteger:
      if (!integer(position, low, object.value)) return false;
      break;
    case kReal:
      if (!real(position, low, seconds)) return false;
      object.value = seconds;
      break;
    case kDate:
      if (low != 3 || !real(position, low, seconds)) return fail("a date is none");
      object.value = TKSDate{seconds + kSecondsTo2001};
      break;
    case kIdentifier: {
      Bytes bytes;
      if (!takeBytes(position, low + 1u, 1, bytes) || bytes.size() > 8) return fail("an identifier is too long");
      object.value = TKSDictionary{{"CF$UID", static_cast<std::int64_t>(bigEndian(bytes))}};
      break;
    }
    case kData:
    case kAscii:
    case kUtf16: {
      const std::optional<std::size_t> count = takeSize(position, low);
      Bytes bytes;
      if (!count) return fail("an object has no size");
      if (!takeBytes(position, *count, marker == kUtf16 ? 2 : 1, bytes)) return false;
      if (marker == kData) {
        object.value = TKSData(bytes.begin(), bytes.end());
      } else if (!text(marker, bytes, object.value)) {
        return false;
      }
      size = bytes.size();
      break;
    }
    case kArray:
    case kOrderedSet:
    case kSet:
    case kDictionary: {
      const std::optional<std::size_t> count = takeSize(position, low);
      if (!count) return fail("an object has no size");
      return open(number, position, *count, marker == kDictionary);
    }
    default:
      return fail("an object is of an unknown kind");
  }
  object.expansion = 1 + size;
  object.state = State::read;
  return true;
}

/// Integers of up to four bytes have no sign. What 64 bits with a sign cannot hold becomes a real.
bool BinaryReader::integer(std::size_t position, std::uint8_t low, TKSValue& value) {
  Bytes bytes;
  if (low > 4) return fail("an integer is too wide");
  if (!takeBytes(position, std::size_t{1} << low, 1, bytes)) return false;
  if (low < 4) {
    value = static_cast<std::int64_t>(bigEndian(bytes));
    return true;
  }
  const auto high = static_cast<std::int64_t>(bigEndian(bytes.first(8)));
  const std::uint64_t lowHalf = bigEndian(bytes.last(8));
  const auto signedLow = static_cast<std::int64_t>(lowHalf);
  if (high == (signedLow < 0 ? -1 : 0)) {
    value = signedLow;
  } else {
    value = std::ldexp(static_cast<double>(high), 64) + static_cast<double>(lowHalf);
  }
  return true;
}

bool BinaryReader::real(std::size_t position, std::uint8_t low, double& value) {
  Bytes bytes;
  if (low != 2 && low != 3) return fail("a real is of an unknown width");
  if (!takeBytes(position, std::size_t{1} << low, 1, bytes)) return false;
  const std::uint64_t bits = bigEndian(bytes);
  value = low == 3 ? std::bit_cast<double>(bits) : std::bit_cast<float>(static_cast<std::uint32_t>(bits));
  return true;
}

void appendUtf8(std::string& text, std::uint32_t code) {
  const auto put = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (code < 0x80) return put(code);
  if (code < 0x800) {
    put(0xC0 | code >> 6);
  } else {
    if (code < 0x10000) {
      put(0xE0 | code >> 12);
    } else {
      put(0xF0 | code >> 18);
      put(0x80 | (code >> 12 & 0x3F));
    }
    put(0x80 | (code >> 6 & 0x3F));
  }
  put(0x80 | (code & 0x3F));
}

/// Half a surrogate pair becomes the replacement character.
std::string utf8OfUtf16(Bytes bytes) {
  constexpr std::uint32_t kReplacement = 0xFFFD;
  const auto unitAt = [&](std::size_t at) { return static_cast<std::uint32_t>(bytes[at] << 8 | bytes[at + 1]); };
  std::string text;
  text.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    std::uint32_t code = unitAt(i);
    if (code >= 0xD800 && code < 0xE000) {
      const std::uint32_t second = code < 0xDC00 && i + 2 < bytes.size() ? unitAt(i + 2) : 0;
      if (second >= 0xDC00 && second < 0xE000) {
        code = 0x10000 + ((code - 0xD800) << 10) + (second - 0xDC00);
        i += 2;
      } else {
        code = kReplacement;
      }
    }
    appendUtf8(text, code);
  }
  return text;
}

bool BinaryReader::text(std::uint8_t marker, Bytes bytes, TKSValue& value) {
  if (marker == kUtf16) {
    value = utf8OfUtf16(bytes);
    return true;
  }
  const std::string_view characters(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  // Some writers put UTF-8 here.
  if (!simdjson::validate_utf8(characters.data(), characters.size())) return fail("a text is broken");
  value = characters;
  return true;
}

// Writing.

/// Bytes that an unsigned number needs in the list: 1, 2, 4 or 8.
std::size_t widthOf(std::uint64_t number) {
  return number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : number <= 0xFFFFFFFF ? 4 : 8;
}

/// First numbers all objects, those of an array or dictionary behind it, then writes them. Equal texts are one object.
class BinaryWriter {
 public:
  explicit BinaryWriter(std::string& problem) : problem_(problem) {}

  std::optional<TKSData> write(const TKSValue& value);

 private:
  /// A value, or the key of a dictionary. The values belong to the one being written, which stays unchanged.
  struct Object {
    const TKSValue* value;
    std::string_view key;
    std::size_t firstReference;
    std::uint32_t depth;
  };

  bool fail(std::string_view what) {
    problem_ = what;
    return false;
  }
  bool number(const TKSValue& root);
  bool add(const TKSValue& value, std::uint32_t depth);
  bool addKey(std::string_view key, std::uint32_t depth);
  bool addText(std::string_view text, Object object);
  bool addReferences(std::size_t object);
  bool addObject(Object object);
  bool writeObject(const Object& object);
  void put(std::uint64_t number, std::size_t width);
  void putHead(Marker marker, std::size_t size);
  void putInteger(std::int64_t number);
  void putReal(Marker marker, double number);
  bool putText(std::string_view text);
  void putReferences(Marker marker, const Object& object, std::size_t size, std::size_t references);

  std::string& problem_;
  std::vector<Object> objects_;
  std::vector<std::uint32_t> references_;
  std::unordered_map<std::string_view, std::uint32_t> texts_;
  std::size_t referenceWidth_ = 1;
  TKSData out_;
};

bool BinaryWriter::addObject(Object object) {
  references_.push_back(static_cast<std::uint32_t>(objects_.size()));
  objects_.push_back(object);
  // Each object takes at least a byte and a reference, so this bounds the memory too.
  return objects_.size() <= kLargestSize / 2 || fail("it is too large");
}

bool BinaryWriter::addText(std::string_view text, Object object) {
  const auto [known, isNew] = texts_.try_emplace(text, static_cast<std::uint32_t>(objects_.size()));
  if (isNew) return addObject(object);
  references_.push_back(known->second);
  return references_.size() <= kLargestSize || fail("it is too large");
}

bool BinaryWriter::add(const TKSValue& value, std::uint32_t depth) {
  if (value.isNothing() || value.isNull()) return fail("property lists have no null");
  const Object object{&value, {}, 0, depth};
  return value.isText() ? addText(value.text(), object) : addObject(object);
}

bool BinaryWriter::addKey(std::string_view key, std::uint32_t depth) { return addText(key, {nullptr, key, 0, depth}); }

/// Numbers what an array or dictionary holds.
bool BinaryWriter::addReferences(std::size_t index) {
  Object& object = objects_[index];
  if (object.value == nullptr || (!object.value->isArray() && !object.value->isDictionary())) return true;
  if (object.depth > kDeepestNesting) return fail("it is nested too deeply");
  object.firstReference = references_.size();
  const std::uint32_t depth = object.depth + 1;
  const TKSValue& value = *object.value;
  if (value.isArray()) {
    for (const TKSValue& element : value.array()) {
      if (!add(element, depth)) return false;
    }
    return true;
  }
  const TKSDictionary dictionary = value.dictionary();
  for (const auto& [key, unused] : dictionary) {
    if (!addKey(key, depth)) return false;
  }
  for (const auto& [unused, element] : dictionary) {
    if (!add(element, depth)) return false;
  }
  return true;
}

bool BinaryWriter::number(const TKSValue& root) {
  if (!add(root, 1)) return false;
  for (std::size_t i = 0; i < objects_.size(); ++i) {
    if (!addReferences(i)) return false;
  }
  referenceWidth_ = widthOf(objects_.size() - 1);
  return true;
}

void BinaryWriter::put(std::uint64_t number, std::size_t width) {
  for (std::size_t i = width; i > 0; --i) out_.push_back(static_cast<std::uint8_t>(number >> (8 * (i - 1))));
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

/// The UTF-16 units of a text that is UTF-8.
std::vector<std::uint16_t> utf16OfUtf8(std::string_view text) {
  std::vector<std::uint16_t> units;
  units.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint32_t code = size == 1 ? lead : lead & (0xFFu >> (size + 1));
    for (std::size_t j = 1; j < size; ++j) code = code << 6 | (static_cast<unsigned char>(text[i + j]) & 0x3F);
    i += size;
    if (code >= 0x10000) {
      units.push_back(static_cast<std::uint16_t>(0xD800 + ((code - 0x10000) >> 10)));
      code = 0xDC00 + ((code - 0x10000) & 0x3FF);
    }
    units.push_back(static_cast<std::uint16_t>(code));
  }
  return units;
}

bool BinaryWriter::putText(std::string_view text) {
  if (!simdjson::validate_utf8(text.data(), text.size())) return fail("a text is not UTF-8");
  if (std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    putHead(kAscii, text.size());
    out_.insert(out_.end(), text.begin(), text.end());
    return true;
  }
  const std::vector<std::uint16_t> units = utf16OfUtf8(text);
  putHead(kUtf16, units.size());
  for (const std::uint16_t unit : units) put(unit, 2);
  return true;
}

void BinaryWriter::putReferences(Marker marker, const Object& object, std::size_t size, std::size_t references) {
  putHead(marker, size);
  for (std::size_t i = 0; i < references; ++i) put(references_[object.firstReference + i], referenceWidth_);
}

bool BinaryWriter::writeObject(const Object& object) {
  if (object.value == nullptr) return putText(object.key);
  const TKSValue& value = *object.value;
  switch (value.kind()) {
    case Kind::boolean:
      put(value.boolean() ? 0x9 : 0x8, 1);
      return true;
    case Kind::integer:
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
    case Kind::data: {
      const TKSData data = value.data();
      putHead(kData, data.size());
      out_.insert(out_.end(), data.begin(), data.end());
      return true;
    }
    case Kind::array: {
      const std::size_t size = value.array().size();
      putReferences(kArray, object, size, size);
      return true;
    }
    case Kind::dictionary: {
      const std::size_t size = value.dictionary().size();
      putReferences(kDictionary, object, size, 2 * size);
      return true;
    }
    case Kind::nothing:
    case Kind::null:
      break;
  }
  return fail("property lists have no null");
}

std::optional<TKSData> BinaryWriter::write(const TKSValue& root) {
  if (!number(root)) return std::nullopt;
  out_.assign(kMagic.begin(), kMagic.end());
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
    fail("it is too large");
    return std::nullopt;
  }
  for (const std::size_t offset : offsets) put(offset, offsetWidth);
  put(0, 6);
  put(offsetWidth, 1);
  put(referenceWidth_, 1);
  put(objects_.size(), 8);
  put(0, 8);
  put(offsetStart, 8);
  return std::move(out_);
}

}  // namespace

bool isBinary(std::span<const std::uint8_t> content) {
  return content.size() >= 6 && std::memcmp(content.data(), kMagic.data(), 6) == 0;
}

TKSValue readBinary(std::span<const std::uint8_t> content, std::string& problem) {
  return BinaryReader(content, problem).read();
}

std::optional<TKSData> writeBinary(const TKSValue& value, std::string& problem) {
  return BinaryWriter(problem).write(value);
}

}  // namespace tks::gnulinux::property_list

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "formats/property_list_binary.h"
#include "formats/property_list_binary_objects.h"
#include "foundation/values/Utf8.h"
#include "foundation/values/ValueBuilder.h"
#include "foundation/values/ValueNodes.h"

namespace tks::formats::property_list {
namespace {

using Bytes = std::span<const std::uint8_t>;

template <std::size_t width>
std::uint64_t bigEndian(const std::uint8_t* bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < width; ++i) number = number << 8 | bytes[i];
  return number;
}

/// The number in up to eight bytes. The usual widths are worth a case of their own.
std::uint64_t bigEndian(const std::uint8_t* bytes, std::size_t width) {
  switch (width) {
    case 1:
      return bytes[0];
    case 2:
      return bigEndian<2>(bytes);
    case 4:
      return bigEndian<4>(bytes);
    case 8:
      return bigEndian<8>(bytes);
    default:
      break;
  }
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < width; ++i) number = number << 8 | bytes[i];
  return number;
}
std::uint64_t bigEndian(Bytes bytes) { return bigEndian(bytes.data(), bytes.size()); }

/// The real nearest to an integer of 128 bits that 64 do not hold.
double nearestReal(std::int64_t high, std::uint64_t low) {
  const bool negative = high < 0;
  std::uint64_t top =
      negative ? ~static_cast<std::uint64_t>(high) + (low == 0 ? 1 : 0) : static_cast<std::uint64_t>(high);
  if (negative) low = -low;
  const int shift = std::countl_zero(top);
  // Its 64 highest bits are more than a real keeps: of the others it matters only whether one is set.
  if (shift == 64) {
    top = low;
    low = 0;
  } else if (shift > 0) {
    top = top << shift | low >> (64 - shift);
    low <<= shift;
  }
  const double magnitude = std::ldexp(static_cast<double>(top | (low != 0 ? 1 : 0)), 64 - shift);
  return negative ? -magnitude : magnitude;
}

/// Appends the text of UTF-16 units. Half a surrogate pair becomes the replacement character.
void appendUtf16(std::string& text, Bytes bytes) {
  constexpr char32_t kReplacement = 0xFFFD;
  const auto unitAt = [&](std::size_t at) { return static_cast<char32_t>(bytes[at] << 8 | bytes[at + 1]); };
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    char32_t character = unitAt(i);
    if (character >= 0xD800 && character < 0xE000) {
      const char32_t second = character < 0xDC00 && i + 2 < bytes.size() ? unitAt(i + 2) : 0;
      if (second >= 0xDC00 && second < 0xE000) {
        character = 0x10000 + ((character - 0xD800) << 10) + (second - 0xDC00);
        i += 2;
      } else {
        character = kReplacement;
      }
    }
    utf8::append(text, character);
  }
}

/// Turns the objects of a list into a value, without recursion: what is open stands in `open_`. An object is read anew
/// for each reference to it; that an object holds itself shows as nesting without end.
class BinaryReader {
 public:
  BinaryReader(Bytes content, Problem& problem) : content_(content), problem_(problem), builder_(2 * content.size()) {}

  TKSValue read();

 private:
  /// An array or dictionary that is being read. A key and its value are two items.
  struct Open {
    std::size_t references;
    std::size_t items;
    std::size_t taken;
    bool isDictionary;
  };

  bool fail(std::string_view what) { return problem_.say(what); }

  bool readTrailer();
  bool advance();
  std::uint64_t referenceAt(const Open& container, std::size_t item) const;
  bool readObject(std::uint64_t number, bool asKey);
  bool simple(std::uint8_t low);
  bool integer(std::size_t position, std::uint8_t low);
  bool real(std::size_t position, std::uint8_t low, double& value);
  bool identifier(std::size_t position, std::uint8_t low);
  bool sized(std::uint8_t marker, std::size_t position, std::uint8_t low);
  bool ascii(std::size_t position, std::uint8_t low);
  bool open(std::size_t position, std::size_t count, bool isDictionary);
  std::optional<std::size_t> takeSize(std::size_t& position, std::uint8_t low);
  bool takeBytes(std::size_t position, std::size_t count, std::size_t unit, Bytes& bytes);
  bool spend(std::size_t bytes);

  const Bytes content_;
  Problem& problem_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::size_t offsets_ = 0;
  std::size_t objects_ = 0;
  std::size_t top_ = 0;
  /// What is left of the largest expansion.
  std::size_t budget_ = largestExpansion(content_.size());
  std::vector<Open> open_;
  value::Builder builder_;
  std::string buffer_;
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
      top >= count) {
    return fail("its trailer points beyond the list");
  }
  offsets_ = static_cast<std::size_t>(offsets);
  objects_ = static_cast<std::size_t>(count);
  top_ = static_cast<std::size_t>(top);
  return true;
}

[[gnu::flatten]] TKSValue BinaryReader::read() {
  if (!readTrailer() || !readObject(top_, false)) return {};
  while (!open_.empty()) {
    if (!advance()) return {};
  }
  return builder_.take();
}

/// Reads items of the innermost open array or dictionary up to one that is opened itself, or closes it.
bool BinaryReader::advance() {
  const std::size_t depth = open_.size();
  Open innermost = open_.back();
  while (innermost.taken < innermost.items) {
    const bool asKey = innermost.isDictionary && innermost.taken % 2 == 0;
    if (!readObject(referenceAt(innermost, innermost.taken++), asKey)) return false;
    if (open_.size() == depth) continue;
    open_[depth - 1].taken = innermost.taken;
    return true;
  }
  innermost.isDictionary ? builder_.endDictionary() : builder_.endArray();
  open_.pop_back();
  return true;
}

/// Keys and values are taken in turn, although all keys stand before all values.
std::uint64_t BinaryReader::referenceAt(const Open& container, std::size_t item) const {
  const std::size_t at = container.isDictionary ? item / 2 + item % 2 * (container.items / 2) : item;
  return bigEndian(content_.data() + container.references + at * referenceSize_, referenceSize_);
}

bool BinaryReader::spend(std::size_t bytes) {
  if (bytes > budget_) return problem_.sayBeyondBounds("its references stand for too much");
  budget_ -= bytes;
  return true;
}

/// The bytes of `count` units, which must lie before the offsets.
bool BinaryReader::takeBytes(std::size_t position, std::size_t count, std::size_t unit, Bytes& bytes) {
  if (position > offsets_ || count > (offsets_ - position) / unit) return fail("an object reaches beyond its place");
  bytes = content_.subspan(position, count * unit);
  return spend(bytes.size());
}

/// The size of an object whose first byte ended in `low`; moves `position` past it.
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

bool BinaryReader::readObject(std::uint64_t number, bool asKey) {
  if (number >= objects_) return fail("a reference points beyond the list");
  const std::size_t entry = offsets_ + static_cast<std::size_t>(number) * offsetSize_;
  const std::uint64_t offset = bigEndian(content_.data() + entry, offsetSize_);
  if (offset < kMagic.size() || offset >= offsets_) return fail("an object lies beyond the list");
  const auto position = static_cast<std::size_t>(offset);
  const std::uint8_t marker = content_[position] >> 4;
  const std::uint8_t low = content_[position] & 0xF;
  if (asKey && marker != kAscii && marker != kUtf16) return fail("a key is no text");
  if (!spend(sizeof(TKSValue))) return false;
  // Most are texts: all keys, and many values. The processor foresees this question better than the jump to any kind.
  if (marker == kAscii) return ascii(position + 1, low);
  double number64 = 0;
  switch (marker) {
    case kSimple:
      return simple(low);
    case kInteger:
      return integer(position + 1, low);
    case kReal:
      if (!real(position + 1, low, number64)) return false;
      builder_.real(number64);
      return true;
    case kDate:
      if (low != 3 || !real(position + 1, low, number64)) return fail("a date is none");
      builder_.date(TKSDate{number64 + kSecondsTo2001});
      return true;
    case kIdentifier:
      return identifier(position + 1, low);
    default:
      return sized(marker, position + 1, low);
  }
}

bool BinaryReader::simple(std::uint8_t low) {
  switch (low) {
    case 0x0:
      builder_.null();
      return true;
    case 0x8:
    case 0x9:
      builder_.boolean(low == 0x9);
      return true;
    default:
      return fail("an object is of an unknown kind");
  }
}

bool BinaryReader::identifier(std::size_t position, std::uint8_t low) {
  Bytes bytes;
  if (!takeBytes(position, low + 1u, 1, bytes) || bytes.size() > 8) return fail("an identifier is too long");
  builder_.beginDictionary(1);
  builder_.key("CF$UID");
  builder_.integer(static_cast<std::int64_t>(bigEndian(bytes)));
  builder_.endDictionary();
  return true;
}

bool BinaryReader::sized(std::uint8_t marker, std::size_t position, std::uint8_t low) {
  const std::optional<std::size_t> count = takeSize(position, low);
  if (!count) return fail("an object has no size");
  Bytes bytes;
  switch (marker) {
    case kData:
      if (!takeBytes(position, *count, 1, bytes)) return false;
      builder_.data(bytes);
      return true;
    case kUtf16:
      if (!takeBytes(position, *count, 2, bytes)) return false;
      buffer_.clear();
      appendUtf16(buffer_, bytes);
      builder_.text(buffer_);
      return true;
    case kArray:
    case kOrderedSet:
    case kSet:
    case kDictionary:
      return open(position, *count, marker == kDictionary);
    default:
      return fail("an object is of an unknown kind");
  }
}

/// Some writers put UTF-8 where ASCII is meant.
bool BinaryReader::ascii(std::size_t position, std::uint8_t low) {
  const std::optional<std::size_t> count = takeSize(position, low);
  if (!count) return fail("an object has no size");
  Bytes bytes;
  if (!takeBytes(position, *count, 1, bytes)) return false;
  const std::string_view characters(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  // The trailer follows every object.
  static_assert(kTrailerSize >= value::kBytesBehind);
  if (builder_.asciiText(characters)) return true;
  if (!utf8::isValid(characters)) return fail("a text is broken");
  builder_.text(characters);
  return true;
}

bool BinaryReader::open(std::size_t position, std::size_t count, bool isDictionary) {
  if (open_.size() == kDeepestNesting) return problem_.sayBeyondBounds("it is nested too deeply");
  const std::size_t items = isDictionary ? 2 * count : count;
  Bytes references;
  // The room for the values is spent before it is taken.
  if (!takeBytes(position, items, referenceSize_, references) || !spend(items * sizeof(TKSValue))) return false;
  isDictionary ? builder_.beginDictionary(count) : builder_.beginArray(count);
  open_.push_back({position, items, 0, isDictionary});
  return true;
}

/// Integers of up to four bytes have no sign. What 64 bits cannot hold, with a sign or without, becomes a real.
bool BinaryReader::integer(std::size_t position, std::uint8_t low) {
  Bytes bytes;
  if (low > 4) return fail("an integer is too wide");
  if (!takeBytes(position, std::size_t{1} << low, 1, bytes)) return false;
  if (low < 4) {
    builder_.integer(static_cast<std::int64_t>(bigEndian(bytes)));
    return true;
  }
  const auto high = static_cast<std::int64_t>(bigEndian(bytes.first(8)));
  const std::uint64_t lowHalf = bigEndian(bytes.last(8));
  const auto fitting = static_cast<std::int64_t>(lowHalf);
  if (high == (fitting < 0 ? -1 : 0)) {
    builder_.integer(fitting);
  } else if (high == 0) {
    builder_.unsignedInteger(lowHalf);
  } else {
    builder_.real(nearestReal(high, lowHalf));
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

}  // namespace

bool isBinary(std::span<const std::uint8_t> content) {
  return content.size() >= 6 && std::memcmp(content.data(), kMagic.data(), 6) == 0;
}

TKSValue readBinary(std::span<const std::uint8_t> content, Problem& problem) {
  return BinaryReader(content, problem).read();
}

}  // namespace tks::formats::property_list

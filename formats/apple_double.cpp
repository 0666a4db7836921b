#include "formats/apple_double.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "foundation/values/FilePaths.h"

namespace tks::formats {
namespace {

constexpr std::uint32_t kMagic = 0x00051607;
constexpr std::uint32_t kVersion = 0x00020000;
constexpr std::string_view kFiller = "Mac OS X        ";
constexpr std::uint32_t kAttributesMark = 0x41545452;  // "ATTR"
constexpr std::uint32_t kFinderInfoEntry = 9;
constexpr std::uint32_t kResourceForkEntry = 2;
constexpr std::size_t kHeaderSize = 26;
constexpr std::size_t kEntrySize = 12;
constexpr std::size_t kFinderInfoSize = 32;
/// From the start of the Finder info: after it and its padding.
constexpr std::size_t kAttributesOffset = 34;
constexpr std::size_t kAttributesHeaderSize = 36;
constexpr std::size_t kRecordSize = 11;
constexpr std::size_t kMostEntries = 15;
constexpr std::size_t kMostAttributes = 256;
constexpr std::size_t kLongestName = 127;
constexpr std::string_view kFinderInfoName = "com.apple.FinderInfo";
constexpr std::string_view kResourceForkName = "com.apple.ResourceFork";

using Bytes = std::span<const std::uint8_t>;

/// Reads numbers at offsets that were checked before.
std::uint32_t number(Bytes bytes, std::size_t offset, std::size_t size) {
  std::uint32_t value = 0;
  for (const std::uint8_t byte : bytes.subspan(offset, size)) value = value << 8 | byte;
  return value;
}

/// Part of a file by numbers it holds; nothing when it lies outside.
std::optional<Bytes> part(Bytes bytes, std::size_t offset, std::size_t size) {
  if (offset > bytes.size() || size > bytes.size() - offset) return std::nullopt;
  return bytes.subspan(offset, size);
}

TKSValue data(Bytes bytes) { return TKSData(bytes.begin(), bytes.end()); }

struct Record {
  std::string name;
  std::size_t offset = 0;
  std::size_t length = 0;
  /// Offset of the next record.
  std::size_t end = 0;
};

std::optional<Record> readRecord(Bytes file, std::size_t at, std::size_t limit) {
  if (at + kRecordSize > limit) return std::nullopt;
  const std::size_t nameLength = file[at + 10];
  const std::size_t nameAt = at + kRecordSize;
  if (nameLength < 2 || nameLength > kLongestName + 1 || nameAt + nameLength > limit) return std::nullopt;
  Record record;
  record.offset = number(file, at, 4);
  record.length = number(file, at + 4, 4);
  record.name.assign(reinterpret_cast<const char*>(file.data() + nameAt), nameLength);
  if (record.name.find('\0') != nameLength - 1) return std::nullopt;
  record.name.pop_back();
  record.end = (nameAt + nameLength + 3) / 4 * 4;
  return record;
}

/// The records after the Finder info, which starts at `start` and has `size` bytes with all that follows.
bool readAttributes(Bytes file, std::size_t start, std::size_t size, TKSDictionary& attributes) {
  const std::size_t header = start + kAttributesOffset;
  const std::size_t end = start + size;
  if (header + kAttributesHeaderSize > end || number(file, header, 4) != kAttributesMark) return false;
  const std::size_t totalSize = number(file, header + 8, 4);
  const std::size_t dataStart = number(file, header + 12, 4);
  const std::size_t dataLength = number(file, header + 16, 4);
  const std::size_t count = number(file, header + 34, 2);
  if (totalSize > end || count > kMostAttributes || dataStart > end || dataLength > end - dataStart) return false;

  std::size_t at = header + kAttributesHeaderSize;
  std::size_t sum = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::optional<Record> record = readRecord(file, at, dataStart);
    if (!record || record->offset < dataStart || record->offset > dataStart + dataLength ||
        record->length > dataStart + dataLength - record->offset) {
      return false;
    }
    attributes.set(record->name, data(file.subspan(record->offset, record->length)));
    sum += record->length;
    at = record->end;
  }
  return at <= dataStart && sum == dataLength;
}

bool readFinderInfo(Bytes file, std::size_t start, std::size_t size, TKSDictionary& attributes) {
  if (size < kFinderInfoSize) return false;
  const Bytes info = file.subspan(start, kFinderInfoSize);
  if (std::any_of(info.begin(), info.end(), [](std::uint8_t byte) { return byte != 0; })) {
    attributes.set(kFinderInfoName, data(info));
  }
  return size == kFinderInfoSize || readAttributes(file, start, size, attributes);
}

void append(TKSData& out, std::size_t value, int size) {
  for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(value >> shift));
}

void append(TKSData& out, const TKSData& bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }

void padTo(TKSData& out, std::size_t size) { out.resize(std::max(out.size(), size)); }

struct Attribute {
  std::string_view name;
  TKSData content;
};

std::size_t recordSize(const Attribute& attribute) { return (kRecordSize + attribute.name.size() + 1 + 3) / 4 * 4; }

void appendAttributes(TKSData& out, const std::vector<Attribute>& attributes, std::size_t dataStart,
                      std::size_t dataLength) {
  append(out, kAttributesMark, 4);
  append(out, 0, 4);
  append(out, dataStart + dataLength, 4);
  append(out, dataStart, 4);
  append(out, dataLength, 4);
  padTo(out, out.size() + 12);
  append(out, 0, 2);
  append(out, attributes.size(), 2);
  std::size_t offset = dataStart;
  for (const Attribute& attribute : attributes) {
    const std::size_t end = out.size() + recordSize(attribute);
    append(out, offset, 4);
    append(out, attribute.content.size(), 4);
    append(out, 0, 2);
    append(out, attribute.name.size() + 1, 1);
    out.insert(out.end(), attribute.name.begin(), attribute.name.end());
    padTo(out, end);
    offset += attribute.content.size();
  }
  for (const Attribute& attribute : attributes) append(out, attribute.content);
}

}  // namespace

std::optional<AppleDouble> parseAppleDouble(std::span<const std::uint8_t> content) {
  if (content.size() < kHeaderSize || number(content, 0, 4) != kMagic || number(content, 4, 4) != kVersion) {
    return std::nullopt;
  }
  const std::size_t count = number(content, 24, 2);
  if (count < 1 || count > kMostEntries || kHeaderSize + count * kEntrySize > content.size()) return std::nullopt;
  AppleDouble sideCar;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t entry = kHeaderSize + i * kEntrySize;
    const std::uint32_t id = number(content, entry, 4);
    const std::size_t offset = number(content, entry + 4, 4);
    const std::optional<Bytes> range = part(content, offset, number(content, entry + 8, 4));
    if (!range) return std::nullopt;
    if (id == kFinderInfoEntry && !readFinderInfo(content, offset, range->size(), sideCar.attributes)) {
      return std::nullopt;
    }
    if (id == kResourceForkEntry && !range->empty()) sideCar.attributes.set(kResourceForkName, data(*range));
  }
  return sideCar;
}

std::optional<TKSData> serializeAppleDouble(const AppleDouble& sideCar) {
  TKSData finderInfo(kFinderInfoSize);
  TKSData resourceFork;
  std::vector<Attribute> attributes;
  std::size_t dataLength = 0;
  const std::size_t finderInfoAt = kHeaderSize + 2 * kEntrySize;
  std::size_t dataStart = finderInfoAt + kAttributesOffset + kAttributesHeaderSize;
  for (const auto& [name, value] : sideCar.attributes) {
    TKSData content = value.data();
    if (name == kFinderInfoName) {
      if (content.size() != kFinderInfoSize) return std::nullopt;
      finderInfo = std::move(content);
    } else if (name == kResourceForkName) {
      resourceFork = std::move(content);
    } else {
      if (name.empty() || name.size() > kLongestName || attributes.size() == kMostAttributes) return std::nullopt;
      dataLength += content.size();
      attributes.push_back({name, std::move(content)});
      dataStart += recordSize(attributes.back());
    }
  }
  if (dataStart + dataLength + resourceFork.size() > UINT32_MAX) return std::nullopt;

  TKSData out;
  append(out, kMagic, 4);
  append(out, kVersion, 4);
  out.insert(out.end(), kFiller.begin(), kFiller.end());
  append(out, 2, 2);
  append(out, kFinderInfoEntry, 4);
  append(out, finderInfoAt, 4);
  append(out, dataStart + dataLength - finderInfoAt, 4);
  append(out, kResourceForkEntry, 4);
  append(out, dataStart + dataLength, 4);
  append(out, resourceFork.size(), 4);
  append(out, finderInfo);
  padTo(out, out.size() + 2);
  appendAttributes(out, attributes, dataStart, dataLength);
  append(out, resourceFork);
  return out;
}

namespace {

/// Whether the last component of a path is a name of its own, which a side-car can stand beside.
bool isName(std::string_view last) { return !last.empty() && last != "/" && last != "." && last != ".."; }

}  // namespace

std::optional<std::string> sideCarPath(std::string_view path) {
  const std::string_view last = lastPathComponent(path);
  if (!isName(last)) return std::nullopt;
  return std::string(folderPart(path)).append(kSideCarPrefix).append(last);
}

std::optional<std::string> itemOfSideCar(std::string_view path) {
  std::string_view last = lastPathComponent(path);
  if (!last.starts_with(kSideCarPrefix)) return std::nullopt;
  last.remove_prefix(kSideCarPrefix.size());
  if (!isName(last)) return std::nullopt;
  return std::string(folderPart(path)).append(last);
}

}  // namespace tks::formats

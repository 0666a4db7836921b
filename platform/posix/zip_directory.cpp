#include "platform/posix/zip_directory.h"

// Where the two places that describe an entry differ, one reader unpacks what another has not looked at. So they must
// not.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tks::posix {
namespace {

// All numbers of a zip archive are little-endian.
constexpr std::uint32_t kEndSignature = 0x06054b50;
constexpr std::size_t kEndSize = 22;
constexpr std::uint32_t kEnd64Signature = 0x06064b50;
constexpr std::size_t kEnd64Size = 56;
constexpr std::uint32_t kLocator64Signature = 0x07064b50;
constexpr std::size_t kLocator64Size = 20;
constexpr std::uint32_t kEntrySignature = 0x02014b50;
constexpr std::size_t kEntrySize = 46;
constexpr std::uint32_t kLocalSignature = 0x04034b50;
constexpr std::size_t kLocalSize = 30;
constexpr std::size_t kLongestComment = 0xFFFF;
constexpr std::uint64_t kLargestDirectory = 64u * 1024 * 1024;
constexpr std::uint64_t kLongestTarget = 4096;
constexpr unsigned kStored = 0;
/// Flag: the sizes stand after the content.
constexpr std::uint64_t kSizeFollows = 8;
/// Extra fields: long numbers; the name in UTF-8; the mode, when the usual place has none.
constexpr std::uint64_t kLongNumbers = 0x0001;
constexpr std::uint64_t kUnicodePath = 0x7075;
constexpr std::uint64_t kUnixMode = 0x756e;
/// In front of the name in UTF-8: a version and the checksum of the name that it stands for.
constexpr std::size_t kUnicodePathHead = 5;
constexpr std::uint64_t kFarthest = INT64_MAX / 2;

using platform::ArchiveEntry;
using Bytes = std::vector<std::uint8_t>;

std::uint64_t number(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = size; i-- > 0;) value = value << 8 | bytes[offset + i];
  return value;
}

/// Exactly `size` bytes from a place in the file, or nothing.
std::optional<Bytes> readAt(const FileDescriptor& file, std::uint64_t offset, std::uint64_t size) {
  Bytes bytes(size);
  std::size_t count = 0;
  while (count < bytes.size()) {
    const ssize_t got = retried([&] {
      return ::pread(file.get(), bytes.data() + count, bytes.size() - count, static_cast<off_t>(offset + count));
    });
    if (got <= 0) return std::nullopt;
    count += static_cast<std::size_t>(got);
  }
  return bytes;
}

std::uint64_t sizeOf(const FileDescriptor& file) {
  struct stat facts {};
  return ::fstat(file.get(), &facts) == 0 ? static_cast<std::uint64_t>(facts.st_size) : 0;
}

struct Directory {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint64_t entries = 0;
  /// Length of what stands in front of the archive proper: places in the archive count from its end.
  std::uint64_t front = 0;
};

/// The directory lies directly in front of its end record, wherever it is said to begin: so unpackers find it.
std::optional<Directory> placed(Directory directory, std::uint64_t endOffset) {
  if (directory.size > endOffset || directory.offset > endOffset - directory.size) return std::nullopt;
  directory.front = endOffset - directory.size - directory.offset;
  directory.offset += directory.front;
  return directory;
}

bool hasLocator(const FileDescriptor& file, std::uint64_t endOffset) {
  if (endOffset < kLocator64Size) return false;
  const std::optional<Bytes> locator = readAt(file, endOffset - kLocator64Size, kLocator64Size);
  return locator && number(*locator, 0, 4) == kLocator64Signature;
}

/// The directory by the longer records that large archives have in front of the usual end record.
std::optional<Directory> find64(const FileDescriptor& file, std::uint64_t endOffset) {
  if (endOffset < kLocator64Size + kEnd64Size) return std::nullopt;
  const std::uint64_t end64Offset = endOffset - kLocator64Size - kEnd64Size;
  const std::optional<Bytes> records = readAt(file, end64Offset, kEnd64Size + kLocator64Size);
  if (!records || number(*records, 0, 4) != kEnd64Signature) return std::nullopt;
  if (number(*records, kEnd64Size, 4) != kLocator64Signature) return std::nullopt;
  const std::optional<Directory> directory =
      placed({number(*records, 48, 8), number(*records, 40, 8), number(*records, 32, 8)}, end64Offset);
  // The locator has to lead to this record: who follows it must find no other.
  if (!directory || number(*records, kEnd64Size + 8, 8) != end64Offset - directory->front) return std::nullopt;
  return directory;
}

/// The directory by the last end record of the file. There may be something in the archive that looks like one; the
/// last is the one that unpackers go by.
std::optional<Directory> findDirectory(const FileDescriptor& file) {
  const std::uint64_t length = sizeOf(file);
  const std::uint64_t tailSize = std::min<std::uint64_t>(length, kEndSize + kLongestComment);
  const std::optional<Bytes> tail = readAt(file, length - tailSize, tailSize);
  if (!tail || tail->size() < kEndSize) return std::nullopt;
  for (std::size_t at = tail->size() - kEndSize + 1; at-- > 0;) {
    if (number(*tail, at, 4) != kEndSignature) continue;
    const std::uint64_t endOffset = length - tailSize + at;
    const Directory directory{number(*tail, at + 16, 4), number(*tail, at + 12, 4), number(*tail, at + 10, 2)};
    const bool isLarge = directory.offset == 0xFFFFFFFF || directory.size == 0xFFFFFFFF || directory.entries == 0xFFFF;
    if (isLarge) {
      if (const std::optional<Directory> large = find64(file, endOffset)) return large;
      if (hasLocator(file, endOffset)) return std::nullopt;
    }
    return placed(directory, endOffset);
  }
  return std::nullopt;
}

std::span<const std::uint8_t> extraOf(std::span<const std::uint8_t> entry) {
  return entry.subspan(kEntrySize + number(entry, 28, 2), number(entry, 30, 2));
}

/// The content of the first extra field of a kind.
std::optional<std::span<const std::uint8_t>> extraField(std::span<const std::uint8_t> extra, std::uint64_t kind) {
  while (extra.size() >= 4) {
    const std::uint64_t length = number(extra, 2, 2);
    if (length > extra.size() - 4) break;
    if (number(extra, 0, 2) == kind) return extra.subspan(4, length);
    extra = extra.subspan(4 + length);
  }
  return std::nullopt;
}

std::uint32_t checksum(std::string_view text) {
  std::uint32_t sum = ~0u;
  for (const char byte : text) {
    sum ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) sum = (sum & 1) != 0 ? sum >> 1 ^ 0xEDB88320u : sum >> 1;
  }
  return ~sum;
}

bool isAscii(std::string_view text) {
  return std::ranges::none_of(text, [](char byte) { return (static_cast<unsigned char>(byte) & 0x80) != 0; });
}

/// The name that unpackers use: the one in UTF-8 of an extra field, when there is one for this name. It may say in full
/// what the plain name can only hint at, but not stand for another plain name: then nothing.
std::optional<std::string> nameToUse(const std::string& plain, std::span<const std::uint8_t> extra) {
  const std::optional<std::span<const std::uint8_t>> field = extraField(extra, kUnicodePath);
  if (!field || field->size() < kUnicodePathHead) return plain;
  const std::string full(field->begin() + kUnicodePathHead, field->end());
  if (full == plain) return plain;
  if (isAscii(full)) return std::nullopt;
  return number(*field, 1, 4) == checksum(plain) ? full : plain;
}

/// The long form of a number that the entry has no room for: size (0), packed size (1) or place (2). The extra field
/// holds those that are missing, in this order.
std::optional<std::uint64_t> large64(std::span<const std::uint8_t> entry, int which) {
  const std::uint64_t short64[] = {number(entry, 24, 4), number(entry, 20, 4), number(entry, 42, 4)};
  std::size_t skipped = 0;
  for (int i = 0; i < which; ++i) skipped += short64[i] == 0xFFFFFFFF ? 8 : 0;
  const std::optional<std::span<const std::uint8_t>> field = extraField(extraOf(entry), kLongNumbers);
  if (!field || field->size() < skipped + 8) return std::nullopt;
  return number(*field, skipped, 8);
}

std::uint64_t unpackedSize(std::span<const std::uint8_t> entry) {
  const std::uint64_t size = number(entry, 24, 4);
  return size == 0xFFFFFFFF ? large64(entry, 0).value_or(size) : size;
}

/// By the mode, wherever the archive was made: some unpackers take it for one from any system.
ArchiveEntry::Kind kindOf(std::span<const std::uint8_t> entry, const std::string& name) {
  auto mode = static_cast<mode_t>(number(entry, 38, 4) >> 16);
  const std::optional<std::span<const std::uint8_t>> field = extraField(extraOf(entry), kUnixMode);
  if (mode == 0 && field && field->size() >= 6) mode = static_cast<mode_t>(number(*field, 4, 2));
  if ((mode & S_IFMT) == 0) return name.ends_with('/') ? ArchiveEntry::Kind::folder : ArchiveEntry::Kind::file;
  if (S_ISLNK(mode)) return ArchiveEntry::Kind::link;
  if (S_ISDIR(mode)) return ArchiveEntry::Kind::folder;
  return S_ISREG(mode) ? ArchiveEntry::Kind::file : ArchiveEntry::Kind::other;
}

/// Where an entry's content begins. In front of it the entry has a header of its own, which says again what the
/// directory says. Nothing when the two do not say the same.
std::optional<std::uint64_t> findContent(const FileDescriptor& file, std::span<const std::uint8_t> entry,
                                         const std::string& name, std::uint64_t front) {
  std::uint64_t offset = number(entry, 42, 4);
  if (offset == 0xFFFFFFFF) offset = large64(entry, 2).value_or(offset);
  if (offset > kFarthest) return std::nullopt;
  offset += front;
  const std::optional<Bytes> header = readAt(file, offset, kLocalSize + name.size());
  if (!header || number(*header, 0, 4) != kLocalSignature || number(*header, 26, 2) != name.size()) return std::nullopt;
  if (!std::equal(name.begin(), name.end(), header->begin() + kLocalSize,
                  [](char ours, std::uint8_t theirs) { return static_cast<std::uint8_t>(ours) == theirs; })) {
    return std::nullopt;
  }
  if (number(*header, 8, 2) != number(entry, 10, 2)) return std::nullopt;
  const std::uint64_t size = number(*header, 22, 4);
  const bool sizeFollows = (number(*header, 6, 2) & kSizeFollows) != 0;
  if (!sizeFollows && size != 0xFFFFFFFF && size != number(entry, 24, 4)) return std::nullopt;
  const std::uint64_t extraSize = number(*header, 28, 2);
  const std::optional<Bytes> extra = readAt(file, offset + kLocalSize + name.size(), extraSize);
  if (!extra || nameToUse(name, *extra).value_or("") != nameToUse(name, extraOf(entry)).value_or("")) {
    return std::nullopt;
  }
  return offset + kLocalSize + name.size() + extraSize;
}

/// A link's target is its content. Packed ones stay unknown: so short a text is stored as it is.
std::string targetOf(const FileDescriptor& file, std::span<const std::uint8_t> entry, std::uint64_t size,
                     std::uint64_t content) {
  if (number(entry, 10, 2) != kStored || size > kLongestTarget) return {};
  const std::optional<Bytes> target = readAt(file, content, size);
  return target ? std::string(target->begin(), target->end()) : std::string();
}

/// Length of the entry at the beginning of what is left of the directory; 0 when it is none.
std::size_t lengthOf(std::span<const std::uint8_t> rest) {
  if (rest.size() < kEntrySize || number(rest, 0, 4) != kEntrySignature) return 0;
  const std::uint64_t whole = kEntrySize + number(rest, 28, 2) + number(rest, 30, 2) + number(rest, 32, 2);
  return whole > rest.size() ? 0 : whole;
}

/// What an entry says; nothing when it says two things.
std::optional<ArchiveEntry> describe(const FileDescriptor& file, std::span<const std::uint8_t> bytes,
                                     std::uint64_t front) {
  const std::span<const std::uint8_t> plain = bytes.subspan(kEntrySize, number(bytes, 28, 2));
  const std::string name(plain.begin(), plain.end());
  const std::optional<std::uint64_t> content = findContent(file, bytes, name, front);
  const std::optional<std::string> used = nameToUse(name, extraOf(bytes));
  if (!content || !used) return std::nullopt;
  ArchiveEntry entry;
  entry.name = *used;
  entry.size = unpackedSize(bytes);
  entry.kind = kindOf(bytes, name);
  if (entry.kind == ArchiveEntry::Kind::link) entry.target = targetOf(file, bytes, entry.size, *content);
  if (entry.kind != ArchiveEntry::Kind::file) entry.size = 0;
  return entry;
}

}  // namespace

bool readZipDirectory(const FileDescriptor& file, const std::function<bool(const ArchiveEntry&)>& visit,
                      const char*& reason) {
  const std::optional<Directory> directory = findDirectory(file);
  reason = "no zip archive, or a damaged one";
  if (!directory || directory->size > kLargestDirectory) return false;
  const std::optional<Bytes> bytes = readAt(file, directory->offset, directory->size);
  if (!bytes) return false;
  std::span<const std::uint8_t> rest(*bytes);
  // To the directory's end: unpackers do not go by the number of entries that the end record gives.
  std::uint64_t seen = 0;
  for (; !rest.empty(); ++seen) {
    const std::size_t whole = lengthOf(rest);
    if (whole == 0) return false;
    const std::optional<ArchiveEntry> entry = describe(file, rest.first(whole), directory->front);
    if (!entry) {
      reason = "an entry is described in two ways";
      return false;
    }
    if (!visit(*entry)) return true;
    rest = rest.subspan(whole);
  }
  return (seen & 0xFFFF) == (directory->entries & 0xFFFF);
}

}  // namespace tks::posix

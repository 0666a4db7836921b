#include "platform/apple/zip_directory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tks::platform::apple {
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
constexpr unsigned kMadeOnUnix = 3;
constexpr unsigned kMadeOnMac = 19;
constexpr unsigned kStored = 0;
/// Flag: the sizes stand behind the content.
constexpr std::uint64_t kSizeFollows = 8;
constexpr std::uint64_t kFarthest = INT64_MAX / 2;

using Bytes = std::vector<std::uint8_t>;

std::uint64_t number(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = size; i-- > 0;) value = value << 8 | bytes[offset + i];
  return value;
}

/// Exactly `size` bytes from a place in the file, or nothing.
std::optional<Bytes> readAt(const posix::FileDescriptor& file, std::uint64_t offset, std::uint64_t size) {
  Bytes bytes(size);
  std::size_t count = 0;
  while (count < bytes.size()) {
    const ssize_t got = posix::retried([&] {
      return ::pread(file.get(), bytes.data() + count, bytes.size() - count, static_cast<off_t>(offset + count));
    });
    if (got <= 0) return std::nullopt;
    count += static_cast<std::size_t>(got);
  }
  return bytes;
}

std::uint64_t sizeOf(const posix::FileDescriptor& file) {
  struct stat facts {};
  return ::fstat(file.get(), &facts) == 0 ? static_cast<std::uint64_t>(facts.st_size) : 0;
}

struct Directory {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint64_t entries = 0;
  /// What stands in front of the archive proper: places in the archive count from behind it.
  std::uint64_t front = 0;
};

/// The directory lies directly in front of its end record, wherever it is said to begin: so unpackers find it.
std::optional<Directory> placed(Directory directory, std::uint64_t endOffset) {
  if (directory.size > endOffset || directory.offset > endOffset - directory.size) return std::nullopt;
  directory.front = endOffset - directory.size - directory.offset;
  directory.offset += directory.front;
  return directory;
}

/// The directory by the longer records that large archives have in front of the usual end record.
std::optional<Directory> find64(const posix::FileDescriptor& file, std::uint64_t endOffset) {
  if (endOffset < kLocator64Size + kEnd64Size) return std::nullopt;
  const std::uint64_t end64Offset = endOffset - kLocator64Size - kEnd64Size;
  const std::optional<Bytes> records = readAt(file, end64Offset, kEnd64Size + kLocator64Size);
  if (!records || number(*records, 0, 4) != kEnd64Signature) return std::nullopt;
  if (number(*records, kEnd64Size, 4) != kLocator64Signature) return std::nullopt;
  return placed({number(*records, 48, 8), number(*records, 40, 8), number(*records, 32, 8)}, end64Offset);
}

/// The directory by the last end record of the file. There may be something in the archive that looks like one; the
/// last is the one that unpackers go by.
std::optional<Directory> findDirectory(const posix::FileDescriptor& file) {
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
    }
    return placed(directory, endOffset);
  }
  return std::nullopt;
}

/// The long form of a number that the entry has no room for: size (0), packed size (1) or place (2). The extra field
/// holds those that are missing, in this order.
std::optional<std::uint64_t> large64(std::span<const std::uint8_t> entry, int which) {
  const std::uint64_t short64[] = {number(entry, 24, 4), number(entry, 20, 4), number(entry, 42, 4)};
  std::size_t skipped = 0;
  for (int i = 0; i < which; ++i) skipped += short64[i] == 0xFFFFFFFF ? 8 : 0;
  std::span<const std::uint8_t> extra = entry.subspan(kEntrySize + number(entry, 28, 2), number(entry, 30, 2));
  while (extra.size() >= 4) {
    const std::uint64_t kind = number(extra, 0, 2);
    const std::uint64_t length = number(extra, 2, 2);
    if (length > extra.size() - 4) break;
    if (kind == 1 && length >= skipped + 8) return number(extra, 4 + skipped, 8);
    extra = extra.subspan(4 + length);
  }
  return std::nullopt;
}

std::uint64_t unpackedSize(std::span<const std::uint8_t> entry) {
  const std::uint64_t size = number(entry, 24, 4);
  return size == 0xFFFFFFFF ? large64(entry, 0).value_or(size) : size;
}

ArchiveEntry::Kind kindOf(std::span<const std::uint8_t> entry, const std::string& name) {
  const std::uint64_t madeOn = number(entry, 5, 1);
  const auto mode = static_cast<mode_t>(number(entry, 38, 4) >> 16);
  if ((madeOn == kMadeOnUnix || madeOn == kMadeOnMac) && (mode & S_IFMT) != 0) {
    if (S_ISLNK(mode)) return ArchiveEntry::Kind::link;
    if (S_ISDIR(mode)) return ArchiveEntry::Kind::folder;
    return S_ISREG(mode) ? ArchiveEntry::Kind::file : ArchiveEntry::Kind::other;
  }
  return name.ends_with('/') ? ArchiveEntry::Kind::folder : ArchiveEntry::Kind::file;
}

/// Where an entry's content begins. In front of it the entry has a header of its own, which says again what the
/// directory says; some unpackers go by the one, some by the other. Nothing when they do not say the same.
std::optional<std::uint64_t> findContent(const posix::FileDescriptor& file, std::span<const std::uint8_t> entry,
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
  return offset + kLocalSize + name.size() + number(*header, 28, 2);
}

/// A link's target is its content. Packed ones stay unknown: so short a text is stored as it is.
std::string targetOf(const posix::FileDescriptor& file, std::span<const std::uint8_t> entry, std::uint64_t size,
                     std::uint64_t content) {
  if (number(entry, 10, 2) != kStored || size > kLongestTarget) return {};
  const std::optional<Bytes> target = readAt(file, content, size);
  return target ? std::string(target->begin(), target->end()) : std::string();
}

}  // namespace

bool isZip(const posix::FileDescriptor& file) { return findDirectory(file).has_value(); }

bool readZipDirectory(const posix::FileDescriptor& file, const std::function<bool(const ArchiveEntry&)>& visit,
                      const char*& reason) {
  const std::optional<Directory> directory = findDirectory(file);
  reason = "damaged zip directory";
  if (!directory || directory->size > kLargestDirectory) return false;
  const std::optional<Bytes> bytes = readAt(file, directory->offset, directory->size);
  if (!bytes) return false;
  std::span<const std::uint8_t> rest(*bytes);
  // To the directory's end: unpackers do not go by the number of entries that the end record gives.
  std::uint64_t seen = 0;
  for (; !rest.empty(); ++seen) {
    if (rest.size() < kEntrySize || number(rest, 0, 4) != kEntrySignature) return false;
    const std::uint64_t nameSize = number(rest, 28, 2);
    const std::uint64_t extraSize = number(rest, 30, 2);
    const std::uint64_t whole = kEntrySize + nameSize + extraSize + number(rest, 32, 2);
    if (whole > rest.size()) return false;
    ArchiveEntry entry;
    const std::span<const std::uint8_t> name = rest.subspan(kEntrySize, nameSize);
    entry.name.assign(name.begin(), name.end());
    entry.size = unpackedSize(rest);
    entry.kind = kindOf(rest, entry.name);
    const std::optional<std::uint64_t> content = findContent(file, rest, entry.name, directory->front);
    if (!content) return false;
    if (entry.kind == ArchiveEntry::Kind::link) entry.target = targetOf(file, rest, entry.size, *content);
    if (entry.kind != ArchiveEntry::Kind::file) entry.size = 0;
    if (!visit(entry)) return true;
    rest = rest.subspan(whole);
  }
  return (seen & 0xFFFF) == (directory->entries & 0xFFFF);
}

}  // namespace tks::platform::apple

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
};

/// The directory's place by the longer records that large archives have in front of the usual end record.
std::optional<Directory> find64(const posix::FileDescriptor& file, std::uint64_t endOffset) {
  if (endOffset < kLocator64Size) return std::nullopt;
  const std::optional<Bytes> locator = readAt(file, endOffset - kLocator64Size, kLocator64Size);
  if (!locator || number(*locator, 0, 4) != kLocator64Signature) return std::nullopt;
  const std::optional<Bytes> end = readAt(file, number(*locator, 8, 8), kEnd64Size);
  if (!end || number(*end, 0, 4) != kEnd64Signature) return std::nullopt;
  return Directory{number(*end, 48, 8), number(*end, 40, 8), number(*end, 32, 8)};
}

std::optional<Directory> findDirectory(const posix::FileDescriptor& file) {
  const std::uint64_t length = sizeOf(file);
  const std::uint64_t tailSize = std::min<std::uint64_t>(length, kEndSize + kLongestComment);
  const std::optional<Bytes> tail = readAt(file, length - tailSize, tailSize);
  if (!tail || tail->size() < kEndSize) return std::nullopt;
  for (std::size_t at = tail->size() - kEndSize + 1; at-- > 0;) {
    if (number(*tail, at, 4) != kEndSignature) continue;
    Directory directory{number(*tail, at + 16, 4), number(*tail, at + 12, 4), number(*tail, at + 10, 2)};
    const bool isLarge = directory.offset == 0xFFFFFFFF || directory.size == 0xFFFFFFFF || directory.entries == 0xFFFF;
    if (isLarge) directory = find64(file, length - tailSize + at).value_or(directory);
    if (directory.size <= length && directory.offset <= length - directory.size) return directory;
  }
  return std::nullopt;
}

/// The size after unpacking, which the extra field holds when it does not fit in 32 bits.
std::uint64_t unpackedSize(std::span<const std::uint8_t> entry, std::span<const std::uint8_t> extra) {
  const std::uint64_t size = number(entry, 24, 4);
  if (size != 0xFFFFFFFF) return size;
  while (extra.size() >= 4) {
    const std::uint64_t kind = number(extra, 0, 2);
    const std::uint64_t length = number(extra, 2, 2);
    if (length > extra.size() - 4) break;
    if (kind == 1 && length >= 8) return number(extra, 4, 8);
    extra = extra.subspan(4 + length);
  }
  return size;
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

/// A link's target is its content. Packed ones stay unknown: so short a text is stored as it is.
std::string targetOf(const posix::FileDescriptor& file, std::span<const std::uint8_t> entry, std::uint64_t size) {
  if (number(entry, 10, 2) != kStored || size > kLongestTarget) return {};
  const std::uint64_t local = number(entry, 42, 4);
  const std::optional<Bytes> header = readAt(file, local, kLocalSize);
  if (!header || number(*header, 0, 4) != kLocalSignature) return {};
  const std::uint64_t content = local + kLocalSize + number(*header, 26, 2) + number(*header, 28, 2);
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
  for (std::uint64_t i = 0; i < directory->entries; ++i) {
    if (rest.size() < kEntrySize || number(rest, 0, 4) != kEntrySignature) return false;
    const std::uint64_t nameSize = number(rest, 28, 2);
    const std::uint64_t extraSize = number(rest, 30, 2);
    const std::uint64_t whole = kEntrySize + nameSize + extraSize + number(rest, 32, 2);
    if (whole > rest.size()) return false;
    ArchiveEntry entry;
    const std::span<const std::uint8_t> name = rest.subspan(kEntrySize, nameSize);
    entry.name.assign(name.begin(), name.end());
    entry.size = unpackedSize(rest, rest.subspan(kEntrySize + nameSize, extraSize));
    entry.kind = kindOf(rest, entry.name);
    if (entry.kind == ArchiveEntry::Kind::link) entry.target = targetOf(file, rest, entry.size);
    if (!visit(entry)) return true;
    rest = rest.subspan(whole);
  }
  return true;
}

}  // namespace tks::platform::apple

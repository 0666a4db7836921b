#include "platform/apple/tar_headers.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tks::platform::apple {
namespace {

constexpr std::size_t kBlock = 512;
/// Names and attributes that stand in front of an entry; anything longer is no name.
constexpr std::uint64_t kLongestPrefix = 1024 * 1024;

using Header = std::array<char, kBlock>;

bool readAt(const posix::FileDescriptor& file, std::uint64_t offset, char* into, std::size_t size) {
  std::size_t count = 0;
  while (count < size) {
    const ssize_t got = posix::retried(
        [&] { return ::pread(file.get(), into + count, size - count, static_cast<off_t>(offset + count)); });
    if (got <= 0) return false;
    count += static_cast<std::size_t>(got);
  }
  return true;
}

std::string textIn(const Header& header, std::size_t offset, std::size_t size) {
  const std::string_view field(header.data() + offset, size);
  return std::string(field.substr(0, field.find('\0')));
}

/// An octal number between blanks, or with the highest bit set a binary one. Nothing for what unpackers read in
/// different ways.
std::optional<std::uint64_t> numberIn(const Header& header, std::size_t offset, std::size_t size) {
  const std::string_view field(header.data() + offset, size);
  std::uint64_t value = 0;
  if ((static_cast<unsigned char>(field[0]) & 0x80) != 0) {
    if (static_cast<unsigned char>(field[0]) != 0x80) return std::nullopt;  // negative, or far too large
    for (const char byte : field.substr(1)) {
      if (value >> 56 != 0) return std::nullopt;
      value = value << 8 | static_cast<unsigned char>(byte);
    }
    return value;
  }
  const std::size_t first = std::min(field.find_first_not_of(' '), size);
  const std::size_t end = std::min(field.find_first_of(std::string_view(" \0", 2), first), size);
  if (field.find_first_not_of(std::string_view(" \0", 2), end) != std::string_view::npos) return std::nullopt;
  for (const char digit : field.substr(first, end - first)) {
    if (digit < '0' || digit > '7') return std::nullopt;
    value = value * 8 + static_cast<std::uint64_t>(digit - '0');
  }
  return value;
}

/// The sum of all bytes, with blanks in the place of the sum itself.
bool isIntact(const Header& header) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < kBlock; ++i) sum += i >= 148 && i < 156 ? ' ' : static_cast<unsigned char>(header[i]);
  return numberIn(header, 148, 8) == sum;
}

/// What extended headers say about the entry that follows them.
struct Overrides {
  std::optional<std::string> name;
  std::optional<std::string> target;
  std::optional<std::uint64_t> size;
  /// A file with holes: its name and size stand elsewhere.
  bool sparse = false;
};

/// One record: KEY and VALUE.
bool readRecord(std::string_view key, std::string_view value, Overrides& overrides) {
  if (key == "path") overrides.name = value;
  if (key == "linkpath") overrides.target = value;
  if (key.starts_with("GNU.sparse.")) overrides.sparse = true;
  if (key != "size") return true;
  std::uint64_t size = 0;
  const char* const last = value.data() + value.size();
  const auto [end, failure] = std::from_chars(value.data(), last, size);
  overrides.size = size;
  return failure == std::errc() && end == last;
}

/// Records "LENGTH KEY=VALUE\n". False when they are anything else.
bool readPax(std::string_view records, Overrides& overrides) {
  while (!records.empty()) {
    std::size_t length = 0;
    const auto [end, failure] = std::from_chars(records.data(), records.data() + records.size(), length);
    const auto digits = static_cast<std::size_t>(end - records.data());
    if (failure != std::errc() || length <= digits + 1 || length > records.size()) return false;
    if (records[digits] != ' ' || records[length - 1] != '\n') return false;
    const std::string_view record = records.substr(digits + 1, length - digits - 2);
    records.remove_prefix(length);
    const std::size_t equals = record.find('=');
    if (equals == std::string_view::npos) return false;
    if (!readRecord(record.substr(0, equals), record.substr(equals + 1), overrides)) return false;
  }
  return true;
}

/// Records for all entries to come. Names and sizes have no business there: unpackers differ in what they make of them.
bool readGlobalPax(std::string_view records) {
  Overrides overrides;
  return readPax(records, overrides) && !overrides.name && !overrides.target && !overrides.size && !overrides.sparse;
}

ArchiveEntry::Kind kindOf(char type) {
  switch (type) {
    case '0':
    case '\0':
    case '7':
      return ArchiveEntry::Kind::file;
    case '1':
      return ArchiveEntry::Kind::hardLink;
    case '2':
      return ArchiveEntry::Kind::link;
    case '5':
      return ArchiveEntry::Kind::folder;
    default:
      return ArchiveEntry::Kind::other;
  }
}

ArchiveEntry describe(const Header& header, std::uint64_t size, const Overrides& overrides) {
  ArchiveEntry entry;
  // GNU's own form, "ustar  ", keeps other things in the place of the prefix.
  const bool hasPrefix = std::string_view(header.data() + 257, 6) == std::string_view("ustar\0", 6);
  const std::string prefix = hasPrefix ? textIn(header, 345, 155) : std::string();
  const std::string name = textIn(header, 0, 100);
  entry.name = overrides.name.value_or(prefix.empty() ? name : prefix + "/" + name);
  entry.kind = overrides.sparse ? ArchiveEntry::Kind::other : kindOf(header[156]);
  const bool isLink = entry.kind == ArchiveEntry::Kind::link || entry.kind == ArchiveEntry::Kind::hardLink;
  if (isLink) entry.target = overrides.target.value_or(textIn(header, 157, 100));
  entry.size = entry.kind == ArchiveEntry::Kind::file ? size : 0;
  return entry;
}

/// Walks from header to header.
class Walk {
 public:
  Walk(const posix::FileDescriptor& file, const std::function<bool(const ArchiveEntry&)>& visit)
      : file_(file), visit_(visit) {}

  bool run() {
    while (readAt(file_, offset_, header_.data(), kBlock)) {
      if (header_ == Header{}) return true;
      const std::optional<std::uint64_t> size = numberIn(header_, 124, 12);
      if (!isIntact(header_) || !size || *size > kLargest) return false;
      const char type = header_[156];
      const bool isPrefix = type == 'x' || type == 'g' || type == 'L' || type == 'K';
      if (!(isPrefix ? takePrefix(type, *size) : takeEntry(type, *size))) return wasEnded_;
    }
    return false;
  }

 private:
  static constexpr std::uint64_t kLargest = INT64_MAX / 4;

  /// What stands in front of an entry and says more about it.
  bool takePrefix(char type, std::uint64_t size) {
    std::string content(std::min(size, kLongestPrefix), '\0');
    if (size > kLongestPrefix || !readAt(file_, offset_ + kBlock, content.data(), content.size())) return false;
    pass(size);
    if (type == 'x') return readPax(content, overrides_);
    if (type == 'g') return readGlobalPax(content);
    (type == 'L' ? overrides_.name : overrides_.target) = content.substr(0, content.find('\0'));
    return true;
  }

  bool takeEntry(char type, std::uint64_t size) {
    // Links and folders have no content, whatever their header says.
    size = type == '2' || type == '5' ? 0 : overrides_.size.value_or(size);
    if (size > kLargest) return false;
    const ArchiveEntry entry = describe(header_, size, overrides_);
    overrides_ = {};
    pass(size);
    wasEnded_ = !visit_(entry);
    return !wasEnded_;
  }

  void pass(std::uint64_t size) {
    offset_ = offset_ > kLargest ? kLargest : offset_ + kBlock + (size + kBlock - 1) / kBlock * kBlock;
  }

  const posix::FileDescriptor& file_;
  const std::function<bool(const ArchiveEntry&)>& visit_;
  std::uint64_t offset_ = 0;
  Header header_{};
  Overrides overrides_;
  bool wasEnded_ = false;
};

}  // namespace

bool readTarHeaders(const posix::FileDescriptor& file, const std::function<bool(const ArchiveEntry&)>& visit,
                    const char*& reason) {
  reason = "no tar archive, or a damaged one";
  return Walk(file, visit).run();
}

}  // namespace tks::platform::apple

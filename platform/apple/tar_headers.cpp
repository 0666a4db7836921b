#include "platform/apple/tar_headers.h"

#include <unistd.h>

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

/// An octal number, or with the highest bit set a binary one.
std::optional<std::uint64_t> numberIn(const Header& header, std::size_t offset, std::size_t size) {
  const auto first = static_cast<unsigned char>(header[offset]);
  std::uint64_t value = 0;
  if ((first & 0x80) != 0) {
    for (std::size_t i = 1; i < size; ++i) value = value << 8 | static_cast<unsigned char>(header[offset + i]);
    return value;
  }
  for (std::size_t i = 0; i < size; ++i) {
    const char digit = header[offset + i];
    if (digit == ' ' || digit == '\0') continue;
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
};

/// Records "LENGTH KEY=VALUE\n".
void readPax(std::string_view records, Overrides& overrides) {
  while (!records.empty()) {
    std::size_t length = 0;
    const auto [end, failure] = std::from_chars(records.data(), records.data() + records.size(), length);
    const auto digits = static_cast<std::size_t>(end - records.data());
    if (failure != std::errc() || length <= digits + 1 || length > records.size()) return;
    const std::string_view record = records.substr(digits + 1, length - digits - 2);
    records.remove_prefix(length);
    const std::size_t equals = record.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view key = record.substr(0, equals);
    const std::string_view value = record.substr(equals + 1);
    if (key == "path") overrides.name = value;
    if (key == "linkpath") overrides.target = value;
    if (key != "size") continue;
    std::uint64_t size = 0;
    std::from_chars(value.data(), value.data() + value.size(), size);
    overrides.size = size;
  }
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
  const std::string prefix = textIn(header, 257, 5) == "ustar" ? textIn(header, 345, 155) : std::string();
  const std::string name = textIn(header, 0, 100);
  entry.name = overrides.name.value_or(prefix.empty() ? name : prefix + "/" + name);
  entry.target = overrides.target.value_or(textIn(header, 157, 100));
  entry.kind = kindOf(header[156]);
  entry.size = entry.kind == ArchiveEntry::Kind::file ? size : 0;
  return entry;
}

}  // namespace

bool readTarHeaders(const posix::FileDescriptor& file, const std::function<bool(const ArchiveEntry&)>& visit,
                    const char*& reason) {
  reason = "no tar archive, or a damaged one";
  Overrides overrides;
  Header header{};
  for (std::uint64_t offset = 0; readAt(file, offset, header.data(), kBlock);) {
    if (header == Header{}) return true;
    const std::optional<std::uint64_t> stated = numberIn(header, 124, 12);
    if (!isIntact(header) || !stated || *stated > INT64_MAX / 2) return false;
    const char type = header[156];
    const bool isPrefix = type == 'x' || type == 'L' || type == 'K';
    if (isPrefix && *stated > kLongestPrefix) return false;
    std::uint64_t size = *stated;
    if (isPrefix) {
      std::string content(size, '\0');
      if (!readAt(file, offset + kBlock, content.data(), content.size())) return false;
      if (type == 'x') readPax(content, overrides);
      if (type == 'L') overrides.name = content.substr(0, content.find('\0'));
      if (type == 'K') overrides.target = content.substr(0, content.find('\0'));
    } else if (type != 'g') {
      size = overrides.size.value_or(size);
      if (!visit(describe(header, size, overrides))) return true;
      overrides = {};
    }
    offset += kBlock + (size + kBlock - 1) / kBlock * kBlock;
  }
  return false;
}

}  // namespace tks::platform::apple

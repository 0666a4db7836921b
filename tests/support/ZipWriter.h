#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tks::test {

/// An entry of a zip archive as a test wants it, odd or not. Its content is stored as it is.
struct ZipEntry {
  std::string name;
  std::string content{};
  /// Kind and permissions, as stat gives them.
  std::uint32_t mode = 0100644;
  /// What the archive says instead of the truth.
  std::optional<std::uint32_t> declaredSize{};
  std::optional<std::uint32_t> checksum{};
  /// The name that stands in front of the content, where the directory has another.
  std::optional<std::string> localName{};
  /// Extra fields of the directory and of what stands in front of the content.
  std::string extra{};
  std::string localExtra{};
  /// Comment of the entry.
  std::string comment{};
  /// The system that the entry was made on: 3 for Unix, 0 for MS-DOS, 19 for macOS.
  std::uint32_t madeOn = 3;
  std::uint32_t flags = 0x800;
};

inline std::uint32_t crc32(std::string_view content) {
  std::uint32_t crc = ~0u;
  for (const char byte : content) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = crc & 1 ? crc >> 1 ^ 0xEDB88320u : crc >> 1;
  }
  return ~crc;
}

/// A number as zip archives hold it.
inline std::string zipNumber(std::uint32_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> 8 * i & 0xFF);
  return text;
}

/// An extra field.
inline std::string zipExtra(std::uint32_t kind, const std::string& content) {
  return zipNumber(kind, 2) + zipNumber(static_cast<std::uint32_t>(content.size()), 2) + content;
}

/// The field that gives an entry's own header a kind and permissions, which only some readers look at.
inline std::string zipLocalMode(std::uint32_t mode) {
  return zipExtra(0x6c78, std::string(1, 5) + zipNumber(0x031E, 2) + zipNumber(mode << 16, 4));
}

/// The field that gives a name in UTF-8 in the place of the plain one.
inline std::string zipUnicodePath(const std::string& plain, const std::string& full) {
  return zipExtra(0x7075, std::string(1, 1) + zipNumber(crc32(plain), 4) + full);
}

/// A zip archive of these entries, with names in UTF-8.
inline std::string zipOf(const std::vector<ZipEntry>& entries, const std::string& comment = "") {
  const auto number = zipNumber;
  const auto length = [](const std::string& text) { return zipNumber(static_cast<std::uint32_t>(text.size()), 2); };
  std::string archive;
  std::string directory;
  for (const ZipEntry& entry : entries) {
    const auto size = static_cast<std::uint32_t>(entry.content.size());
    const std::string& localName = entry.localName ? *entry.localName : entry.name;
    // Flags (names in UTF-8), no compression, a moment in 2024, checksum, sizes.
    const std::string facts = number(entry.flags, 2) + number(0, 2) + number(0, 2) + number(0x5821, 2) +
                              number(entry.checksum.value_or(crc32(entry.content)), 4) + number(size, 4) +
                              number(entry.declaredSize.value_or(size), 4);
    directory += "PK\x01\x02" + number(entry.madeOn << 8 | 0x1E, 2) + number(20, 2) + facts + length(entry.name) +
                 length(entry.extra) + length(entry.comment) + number(0, 2) + number(0, 2) +
                 number(entry.mode << 16, 4) + number(static_cast<std::uint32_t>(archive.size()), 4) + entry.name +
                 entry.extra + entry.comment;
    archive += "PK\x03\x04" + number(20, 2) + facts + length(localName) + length(entry.localExtra) + localName +
               entry.localExtra + entry.content;
  }
  const auto count = static_cast<std::uint32_t>(entries.size());
  return archive + directory + "PK\x05\x06" + number(0, 4) + number(count, 2) + number(count, 2) +
         number(static_cast<std::uint32_t>(directory.size()), 4) +
         number(static_cast<std::uint32_t>(archive.size()), 4) + length(comment) + comment;
}

/// A zip archive of so many entries, all of which have one and the same content in it.
inline std::string zipWithSharedContent(const std::string& folder, std::uint32_t count, const std::string& content) {
  const std::string single = zipOf({{folder + "0000", content}});
  const std::size_t directory = single.find("PK\x01\x02");
  const std::string entry = single.substr(directory, 46);
  std::string archive = single.substr(0, directory);
  std::string all;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::string number = std::to_string(i);
    number.insert(0, 4 - number.size(), '0');
    all += entry + folder + number;
  }
  const auto word = [](std::uint32_t value) {
    std::string text;
    for (int i = 0; i < 4; ++i) text += static_cast<char>(value >> 8 * i & 0xFF);
    return text;
  };
  return archive + all + "PK\x05\x06" + word(0) + word(count).substr(0, 2) + word(count).substr(0, 2) +
         word(static_cast<std::uint32_t>(all.size())) + word(static_cast<std::uint32_t>(directory)) +
         std::string(2, '\0');
}

}  // namespace tks::test

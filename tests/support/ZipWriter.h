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
};

inline std::uint32_t crc32(std::string_view content) {
  std::uint32_t crc = ~0u;
  for (const char byte : content) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = crc & 1 ? crc >> 1 ^ 0xEDB88320u : crc >> 1;
  }
  return ~crc;
}

/// A zip archive of these entries, made as on a Unix, with names in UTF-8.
inline std::string zipOf(const std::vector<ZipEntry>& entries) {
  const auto number = [](std::uint32_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> 8 * i & 0xFF);
    return text;
  };
  std::string archive;
  std::string directory;
  for (const ZipEntry& entry : entries) {
    const auto size = static_cast<std::uint32_t>(entry.content.size());
    // Flags (names in UTF-8), no compression, a moment in 2024, checksum, sizes, length of the name, no extra.
    const std::string facts = number(0x800, 2) + number(0, 2) + number(0, 2) + number(0x5821, 2) +
                              number(entry.checksum.value_or(crc32(entry.content)), 4) + number(size, 4) +
                              number(entry.declaredSize.value_or(size), 4) +
                              number(static_cast<std::uint32_t>(entry.name.size()), 2) + number(0, 2);
    directory += "PK\x01\x02" + number(0x031E, 2) + number(20, 2) + facts + number(0, 2) + number(0, 2) + number(0, 2) +
                 number(entry.mode << 16, 4) + number(static_cast<std::uint32_t>(archive.size()), 4) + entry.name;
    archive += "PK\x03\x04" + number(20, 2) + facts + entry.name + entry.content;
  }
  const auto count = static_cast<std::uint32_t>(entries.size());
  return archive + directory + "PK\x05\x06" + number(0, 4) + number(count, 2) + number(count, 2) +
         number(static_cast<std::uint32_t>(directory.size()), 4) +
         number(static_cast<std::uint32_t>(archive.size()), 4) + number(0, 2);
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

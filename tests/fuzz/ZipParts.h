#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/fuzz/Mutators.h"
#include "tests/support/ZipWriter.h"

namespace tks::fuzz {

/// A zip archive in its parts, as found by their signatures, whatever the lengths in them say.
struct ZipParts {
  std::vector<std::string> entries;  ///< header and content of each
  std::vector<std::string> records;  ///< of the directory
  std::string end;

  /// Nothing for what has no end record.
  static std::optional<ZipParts> of(std::string_view archive) {
    const std::size_t end = archive.rfind("PK\x05\x06");
    if (end == std::string_view::npos) return std::nullopt;
    ZipParts parts;
    parts.end = archive.substr(end);
    std::size_t at = archive.find("PK");
    while (at < end) {
      std::size_t next = archive.find("PK", at + 2);
      while (next < end && archive[next + 2] != '\x01' && archive[next + 2] != '\x03')
        next = archive.find("PK", next + 2);
      (archive[at + 2] == '\x03' ? parts.entries : parts.records).emplace_back(archive.substr(at, next - at));
      at = next;
    }
    return parts;
  }

  /// Makes sizes, checksums, places and counts true. Contents are taken for stored where the header says so.
  std::string joined() {
    std::string archive;
    std::vector<std::size_t> places;
    for (std::string& entry : entries) {
      places.push_back(archive.size());
      if (entry.size() >= kEntryHeader && little16(entry, 8) == 0) repair(entry);
      archive += entry;
    }
    const std::size_t directory = archive.size();
    for (std::size_t i = 0; i < records.size(); ++i) {
      std::string& record = records[i];
      if (i < places.size() && record.size() >= kRecordHeader && entries[i].size() >= kEntryHeader) {
        record.replace(10, 2, entries[i].substr(8, 2));     // method
        record.replace(16, 12, entries[i].substr(14, 12));  // checksum and sizes
        record.replace(42, 4, test::zipNumber(static_cast<std::uint32_t>(places[i]), 4));
      }
      archive += record;
    }
    if (end.size() >= kEndRecord) {
      const auto count = test::zipNumber(static_cast<std::uint32_t>(records.size()), 2);
      end.replace(8, 4, count + count);
      end.replace(12, 4, test::zipNumber(static_cast<std::uint32_t>(archive.size() - directory), 4));
      end.replace(16, 4, test::zipNumber(static_cast<std::uint32_t>(directory), 4));
    }
    return archive + end;
  }

 private:
  static constexpr std::size_t kEntryHeader = 30;
  static constexpr std::size_t kRecordHeader = 46;
  static constexpr std::size_t kEndRecord = 22;

  static std::size_t little16(std::string_view bytes, std::size_t at) {
    return static_cast<std::size_t>(static_cast<unsigned char>(bytes[at])) |
           static_cast<std::size_t>(static_cast<unsigned char>(bytes[at + 1])) << 8;
  }
  static void repair(std::string& entry) {
    const std::size_t names = kEntryHeader + little16(entry, 26) + little16(entry, 28);
    const std::string_view content = std::string_view(entry).substr(std::min(names, entry.size()));
    const auto size = test::zipNumber(static_cast<std::uint32_t>(content.size()), 4);
    entry.replace(14, 12, test::zipNumber(test::crc32(content), 4) + size + size);
  }
};

/// Changes one part of a zip archive and makes the others fit, but for one time in eight.
inline std::size_t mutateZip(std::uint8_t* data, std::size_t size, std::size_t room, unsigned seed) {
  Choice choice(seed);
  std::optional<ZipParts> parts = ZipParts::of({reinterpret_cast<const char*>(data), size});
  if (!parts || choice.oneIn(8)) return LLVMFuzzerMutate(data, size, room);
  auto& group = choice.oneIn(2) && !parts->records.empty() ? parts->records : parts->entries;
  if (group.empty()) return LLVMFuzzerMutate(data, size, room);
  const std::size_t at = choice.below(group.size());
  if (choice.oneIn(6)) {
    // One entry more, or one less.
    const bool both = at < parts->entries.size() && at < parts->records.size();
    if (both && choice.oneIn(2) && parts->entries.size() < 12) {
      parts->entries.push_back(parts->entries[at]);
      parts->records.push_back(parts->records[at]);
    } else if (both) {
      parts->entries.erase(parts->entries.begin() + static_cast<std::ptrdiff_t>(at));
      parts->records.erase(parts->records.begin() + static_cast<std::ptrdiff_t>(at));
    }
  } else {
    const std::size_t used = size - std::min(size, group[at].size());
    group[at] = mutated(group[at], room - std::min(room, used));
  }
  return putBack(parts->joined(), data, room);
}

}  // namespace tks::fuzz

#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace tks::install {

/// What an archive may be.
struct ArchiveRules {
  /// Links that stay inside may be in it.
  bool links = true;
  /// A file may be in it more than once.
  bool repeatedNames = true;
  /// Most bytes after unpacking.
  std::uint64_t mostBytes = UINT64_MAX;
  /// An archive that cannot be read to its end, up to this size, is left to the unpacker, which says what is wrong.
  std::uint64_t mostUnreadBytes = 0;
};

/// What an archive says of itself before it is unpacked.
struct ArchiveContent {
  /// Why it must not be unpacked, in words; nothing when all is well.
  std::optional<std::string> objection;
  /// Bytes that it grows to.
  std::uint64_t size = 0;
  /// First components of all names.
  std::set<std::string> topNames;
};

/// Looks at an archive that is to be unpacked into `folder`. There is no objection when every name stays inside, there
/// are only files, folders and links that stay inside, nothing is put through a link, and the declared sizes fit on the
/// volume and are no bomb.
ArchiveContent lookInto(std::string_view archivePath, std::string_view folder, const ArchiveRules& rules = {});

}  // namespace tks::install

#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "platform/archives.h"

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
  /// Files and links, and folders that are named.
  std::size_t entries = 0;
  /// Paths of all entries, one slash between the components.
  std::set<std::string> names;
  /// All of it was read. When not, the archive may hold more than this says.
  bool isComplete = false;
};

/// Most entries that an archive may have, and most items that it may be unpacked to.
constexpr std::size_t kMostEntries = 200'000;

/// A path in an archive, or in an unpacked tree, as names are written here: backslashes are separators too, as
/// unpackers have it with archives made elsewhere.
std::string archiveName(std::string_view path);

/// Looks at an archive that is to be unpacked into `folder`, in the way in which it will be unpacked. There is no
/// objection when every name stays inside, there are only files, folders and links that stay inside, nothing is put
/// through a link, and the declared sizes fit on the volume and are no bomb.
ArchiveContent lookInto(std::string_view archivePath, platform::ArchiveFormat format, std::string_view folder,
                        const ArchiveRules& rules = {});

}  // namespace tks::install

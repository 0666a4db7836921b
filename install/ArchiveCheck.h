#pragma once

#include <cstdint>
#include <optional>
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

/// Looks at an archive before it is unpacked into `folder`: every name stays inside, there are only files, folders and
/// links that stay inside, nothing is put through a link, and the declared sizes fit on the volume and are no bomb.
/// Nothing when all is well, else the reason in words.
std::optional<std::string> reasonAgainstUnpacking(std::string_view archivePath, std::string_view folder,
                                                  const ArchiveRules& rules = {});

}  // namespace tks::install

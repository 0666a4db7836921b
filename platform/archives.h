#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::platform {

/// One entry of an archive, as the archive declares it.
struct ArchiveEntry {
  enum class Kind { file, folder, link, hardLink, other };

  /// Path inside the archive, as it stands there.
  std::string name;
  Kind kind = Kind::file;
  /// Bytes after unpacking.
  std::uint64_t size = 0;
  /// Where a link or hard link leads, as it stands there.
  std::string target;
};

/// A look into archives before they are unpacked: zip, tar and tar with the usual compressions. Nothing is unpacked.
/// macOS: own readers of zip directories and tar headers; a compressed tar counts as one that cannot be read. Linux:
/// libarchive. Any thread; blocks while it reads.
class Archives {
 public:
  virtual ~Archives() = default;
  /// Calls `visit` for every entry until it answers false. False, and `error`, when the archive cannot be read to its
  /// end; true when all was read or `visit` ended it.
  virtual bool inspect(std::string_view path, const std::function<bool(const ArchiveEntry&)>& visit,
                       TKSError* error) = 0;
};

}  // namespace tks::platform

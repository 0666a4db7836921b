#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::platform {

/// One entry of an archive, as the archive declares it.
struct ArchiveEntry {
  enum class Kind {
    file,      ///< a regular file
    folder,    ///< a folder, empty or not
    link,      ///< a symbolic link
    hardLink,  ///< another name of an entry before it
    other,     ///< a device, a FIFO and the like
  };

  /// Path inside the archive, as it stands there.
  std::string name;
  Kind kind = Kind::file;
  /// Bytes after unpacking.
  std::uint64_t size = 0;
  /// Where a link or hard link leads, as it stands there.
  std::string target;
};

/// How an archive is read: the way in which it will be unpacked, because one file can be an archive in two ways.
enum class ArchiveFormat {
  zip,  ///< by the directory at its end
  tar,  ///< plain, or compressed in one of the usual ways
};

/// A look into archives before they are unpacked: zip, tar and tar with the usual compressions. Nothing is unpacked.
/// Zip: an own reader of the directory that unpackers go by; each entry's own header has to say the same. Tar: on macOS
/// an own reader, to which a compressed tar is one that cannot be read; on Linux libarchive. Any thread; blocks while
/// it reads.
class Archives {
 public:
  virtual ~Archives() = default;
  /// Calls `visit` for every entry until it returns false. False, and `error`, when the archive cannot be read to its
  /// end in this format; true when all was read or `visit` ended it.
  virtual bool inspect(std::string_view path, ArchiveFormat format,
                       const std::function<bool(const ArchiveEntry&)>& visit, TKSError* error) = 0;
};

}  // namespace tks::platform

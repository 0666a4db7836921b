#pragma once

#include <string>

#include <tksinterface/TKSError.h>

namespace tks::ctl {

/// What an archive with a launcher turned out to be.
struct ArchiveReport {
  /// The file is there and can be read to its end, and nothing in it may not be unpacked.
  bool isReadable = false;
  /// The launcher of it is the maker's and of the given version.
  bool isSafe = false;
  std::size_t entries = 0;
  /// Bytes after unpacking.
  std::uint64_t size = 0;
  /// Version of the launcher in it; empty when there is none.
  std::string version;
  /// Why it is not readable, or not safe.
  TKSError error;
};

/// Looks into an archive, unpacks it in a private folder that is gone afterwards, and checks the launcher in it as an
/// installation would. Without a version any will do.
ArchiveReport examineArchive(const std::string& path, const std::string& version);

}  // namespace tks::ctl

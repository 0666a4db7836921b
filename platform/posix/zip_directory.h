#pragma once

#include <functional>

#include "platform/archives.h"
#include "platform/posix/file_descriptor.h"

namespace tks::posix {

/// Calls `visit` for every entry of a zip archive's central directory, which unpackers go by, until it returns false.
/// False, and a reason, when the directory is damaged, or when the header in front of an entry's content or an extra
/// field says something else than the directory: another reader could go by that. The end comment may have any length.
/// Format: PKWARE's APPNOTE 6.3, sections 4.3, 4.5.3 (zip64) and 4.6.9 (names in UTF-8).
bool readZipDirectory(const FileDescriptor& file, const std::function<bool(const platform::ArchiveEntry&)>& visit,
                      const char*& reason);

}  // namespace tks::posix

#pragma once

#include <functional>

#include <tksinterface/TKSError.h>

#include "platform/archives.h"
#include "platform/posix/file_descriptor.h"

namespace tks::platform::apple {

/// Whether a file ends in the directory of a zip archive.
bool isZip(const posix::FileDescriptor& file);

/// Calls `visit` for every entry of a zip archive's central directory, until it answers false. False, and a reason,
/// when the directory is damaged. Format: PKWARE's APPNOTE 6.3, sections 4.3 and 4.5.3 (zip64).
bool readZipDirectory(const posix::FileDescriptor& file, const std::function<bool(const ArchiveEntry&)>& visit,
                      const char*& reason);

}  // namespace tks::platform::apple

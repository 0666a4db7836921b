#pragma once

#include <functional>

#include "platform/archives.h"
#include "platform/posix/file_descriptor.h"

namespace tks::platform::apple {

/// Calls `visit` for every entry of an uncompressed tar archive, until it returns false. False, and a reason, when it
/// is damaged or no tar archive. Format: POSIX ustar and pax (IEEE 1003.1, pax), and GNU's long names.
bool readTarHeaders(const posix::FileDescriptor& file, const std::function<bool(const ArchiveEntry&)>& visit,
                    const char*& reason);

}  // namespace tks::platform::apple

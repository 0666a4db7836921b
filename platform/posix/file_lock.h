#pragma once

#include <chrono>
#include <memory>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/files.h"
#include "platform/posix/file_descriptor.h"

namespace tks::posix {

/// Waits for the lock on an open file, at most for `patience`: a stopped process may hold it for ever. False, and
/// errno, when it is not to be had; ETIMEDOUT when the time is over.
bool waitForLock(const FileDescriptor& file, std::chrono::milliseconds patience);

/// See platform::Files::lock.
std::unique_ptr<platform::FileLock> lockFile(std::string_view path, std::chrono::milliseconds patience,
                                             TKSError* error);

}  // namespace tks::posix

#pragma once

#include <chrono>
#include <memory>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/files.h"

namespace tks::posix {

/// See platform::Files::lock.
std::unique_ptr<platform::FileLock> lockFile(std::string_view path, std::chrono::milliseconds patience,
                                             TKSError* error);

}  // namespace tks::posix

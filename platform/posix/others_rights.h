#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/files.h"

namespace tks::posix {

/// See platform::Files::writableByOthers.
std::optional<std::string> writableByOthers(std::string_view path, platform::Reach reach, TKSError* error);

}  // namespace tks::posix

#pragma once

#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::posix {

/// See platform::Files::copyContent.
bool copyContent(std::string_view from, std::string_view to, TKSError* error);

}  // namespace tks::posix

#pragma once

#include <functional>
#include <string_view>

#include <tksinterface/TKSError.h>

#include "platform/files.h"

namespace tks::posix {

/// See platform::Files::visitTree.
bool visitTree(std::string_view folder, const std::function<bool(const platform::TreeItem&)>& visit, TKSError* error);

}  // namespace tks::posix

#pragma once

#include <optional>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace tks::posix {

/// See platform::Files::changeMark.
std::optional<TKSData> changeMark(std::string_view path, TKSError* error);

}  // namespace tks::posix

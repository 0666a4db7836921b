#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSValue.h>

namespace tks::posix {

/// From when on no further change of an item can have the same time as the last, both in nanoseconds from 1970.
std::int64_t settledFrom(std::int64_t changed);

/// See platform::Files::changeMark.
std::optional<TKSData> changeMark(std::string_view path, TKSError* error);

}  // namespace tks::posix

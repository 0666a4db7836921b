#pragma once

#include <cstdint>
#include <string_view>

#include "foundation/values/ErrorReasons.h"

namespace tks {

/// The facade's error with a text, as generateTKSInterfaceError makes it, with its reason.
TKSError interfaceError(TKSErrorReason reason, std::string_view message, std::int32_t code = 0);

}  // namespace tks

#pragma once

#include <string_view>

#include "foundation/values/ErrorReasons.h"

namespace tks {

/// The default error of a text, with its reason: TKSIDefaultDomain, code 0. An empty text becomes "Unknown error.".
TKSError defaultError(TKSErrorReason reason, std::string_view text);

/// The same as generateTKSInterfaceDefaultError makes it: an empty text has its line, at level 4.
TKSError defaultErrorWithLine(TKSErrorReason reason, std::string_view text);

}  // namespace tks

#pragma once

#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::messaging {

/// Why a conversation is over, from the text that its message host reports, because delegates get nothing else.
TKSErrorReason reasonOfFatalError(std::string_view description);

}  // namespace tks::messaging

#pragma once

#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::messaging {

/// Why a conversation is over, by the text that its message host reports: delegates get the text alone.
TKSErrorReason reasonOfFatalError(std::string_view description);

}  // namespace tks::messaging

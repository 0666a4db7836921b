#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks {

/// The status of a code object that could not be made although no reason was given.
inline constexpr std::int32_t kInternalComponentError = -2070;

/// The message for a validity status that is not 0, followed by the platform's own description.
std::string signatureStatusMessage(std::int32_t status, std::string_view details);

/// Writes the error of the code-signature domain when there is a message. Returns true when there is no message.
bool reportSignatureMessage(std::string message, TKSError* error);

}  // namespace tks

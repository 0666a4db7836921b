#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSURL.h>

#include "platform/signatures.h"

namespace tks {

/// The status of a code object that could not be made although no reason was given.
inline constexpr std::int32_t kInternalComponentError = -2070;

/// The code object whose validity is to be checked; null, with the error of such a check, when it cannot be made.
std::unique_ptr<platform::StaticCode> codeToCheck(const TKSURL& url, TKSError* error);

/// Writes the error of the code-signature domain when there is a message. Returns true when there is no message.
bool reportSignatureMessage(std::string message, TKSError* error);

/// The same for the status of a check: of one that is not 0 the error says what it means, and the platform's details.
bool reportSignatureStatus(std::int32_t status, std::string_view details, TKSError* error);

}  // namespace tks

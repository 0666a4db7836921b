#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::posix {

/// The reason that an error of the system has, by its domain ("NSPOSIXErrorDomain", "NSCocoaErrorDomain",
/// "NSURLErrorDomain") and its number there; systemFailed for all that are not known.
TKSErrorReason reasonOfSystemError(std::string_view domain, std::int64_t code) noexcept;

/// An error of the system with its reason, and with the suggestion that goes with it.
TKSError systemError(std::string_view domain, std::int64_t code, std::string text);

}  // namespace tks::posix

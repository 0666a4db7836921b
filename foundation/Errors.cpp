#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Errors.h"
#include "foundation/logging/Logging.h"

// The library's error objects.

namespace {

/// With a full stop, unlike the text of an error message that the launcher sends without a description.
constexpr std::string_view kUnknownError = "Unknown error.";

}  // namespace

TKSError TKSUtilBase::generateTKSInterfaceDefaultError(std::string_view message) {
  return generateTKSInterfaceError(message, TKSIDefaultDomain, 0);
}

TKSError TKSUtilBase::generateTKSInterfaceError(std::string_view message, std::string_view domain, std::int32_t code) {
  if (message.empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Error info incorrect: %@, set as 'Unknown error'", message);
    message = kUnknownError;
  }
  if (domain.empty()) domain = TKSIDefaultDomain;
  return {std::string(domain), code, std::string(message)};
}

TKSError tks::defaultError(TKSErrorReason reason, std::string_view text) {
  return makeError(reason, TKSIDefaultDomain, 0, std::string(text.empty() ? kUnknownError : text));
}

TKSError tks::defaultErrorWithLine(TKSErrorReason reason, std::string_view text) {
  return withReason(TKSUtilBase::generateTKSInterfaceDefaultError(text), reason);
}

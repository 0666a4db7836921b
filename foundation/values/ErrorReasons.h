#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks {

/// An error of the library: with its reason and the suggestion that goes with it.
TKSError makeError(TKSErrorReason reason, std::string_view domain, std::int64_t code, std::string text);

/// An error with another reason, and with the suggestion that goes with it.
TKSError withReason(TKSError error, TKSErrorReason reason);

/// What went wrong beneath gives an error of another domain its reason; `otherwise` when nothing is known of that.
inline TKSErrorReason reasonOf(const TKSError& beneath, TKSErrorReason otherwise) {
  return beneath.reason == TKSErrorReason::unspecified ? otherwise : beneath.reason;
}

}  // namespace tks

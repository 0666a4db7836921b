#pragma once

#include <ctime>

#include "codesign/container/byte_source.h"
#include "codesign/trust/certificates.h"

namespace tks::codesign {

/// What a time-stamp token certifies.
struct TimeStamp {
  std::time_t moment = 0;    ///< when the signature was there
  bool isFromApple = false;  ///< its chain ends in a root of the platform's maker
};

/// Checks a token (RFC 3161) over a signature. Its chain must end in a trusted root: one of the platform maker's, the
/// one that the code's own chain ends in, or one that this machine trusts. Fails with "signature failed" when anything
/// is wrong.
TimeStamp verifyTimeStamp(Bytes token, Bytes signature, const Chain& codeChain, const AppleRoots& roots);

}  // namespace tks::codesign

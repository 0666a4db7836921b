#pragma once

#include <openssl/types.h>

#include <ctime>
#include <memory>
#include <optional>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "codesign/container/byte_source.h"
#include "codesign/container/code_directory.h"
#include "codesign/trust/certificates.h"
#include "codesign/trust/signed_message.h"

namespace tks::codesign {

/// What a good signature says about its maker.
struct Signer {
  /// Leaf first, anchor last.
  std::vector<TKSData> certificates;
  /// When it was signed: as the signer claims, and as a time-stamping authority certifies.
  std::optional<std::time_t> claimedTime;
  std::optional<std::time_t> certifiedTime;
  /// The parsed chain, for requirements.
  std::vector<Certificate> chain;

  Chain view() const;
};

/// Checks the signature over the primary directory, its attributes, its time stamp and the trust in its maker. Fails
/// with the status that says what is wrong.
Signer verifySignature(Bytes encoded, const DirectorySet& directories, const AppleRoots& roots);

}  // namespace tks::codesign

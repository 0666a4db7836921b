#pragma once

#include <memory>

#include "codesign/trust/certificates.h"
#include "platform/signatures.h"

namespace tks::codesign {

/// The engine behind the contract, with other roots for the platform maker's than the ones that exist.
std::unique_ptr<platform::Signatures> makeSignatures(AppleRoots roots);

}  // namespace tks::codesign

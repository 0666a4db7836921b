#pragma once

#include <memory>

#include "codesign/trust/certificates.h"
#include "platform/signatures.h"

namespace tks::codesign {

/// The engine as the contract of signatures, with these roots in place of the platform maker's.
std::unique_ptr<platform::Signatures> makeSignatures(AppleRoots roots);

}  // namespace tks::codesign

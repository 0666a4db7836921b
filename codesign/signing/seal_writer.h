#pragma once

#include <tksinterface/TKSValue.h>

#include <vector>

#include "codesign/container/code_layout.h"
#include "codesign/container/digest.h"

namespace tks::signing {

struct SealOptions {
  /// Only the first version, as bundles had it long ago.
  bool firstVersionOnly = false;
  /// Hashes of resources beside SHA-1, which is always there.
  std::vector<codesign::HashType> hashTypes{codesign::HashType::sha256};
};

/// The seal over a bundle's resources, in XML form. Code inside of it has to be signed already.
/// Throws std::runtime_error when it is not.
TKSData makeSeal(const codesign::CodeLayout& layout, const SealOptions& options);

}  // namespace tks::signing

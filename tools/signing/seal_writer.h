#pragma once

#include <tksinterface/TKSValue.h>

#include "platform/linux/signatures/code_layout.h"

namespace tks::signing {

struct SealOptions {
  /// Only the first version, as bundles had it long ago.
  bool firstVersionOnly = false;
  bool sha1 = true;
  bool sha256 = true;
};

/// The seal over a bundle's resources, in XML form. Code inside of it has to be signed already.
/// Throws std::runtime_error when it is not.
TKSData makeSeal(const codesign::CodeLayout& layout, const SealOptions& options);

}  // namespace tks::signing

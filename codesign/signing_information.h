#pragma once

#include <tksinterface/TKSValue.h>

#include "codesign/Codesign.h"

namespace tks::codesign {

/// A description under the platform's keys. Unsigned code has "main-executable" alone. Requirements are given as texts,
/// addresses of files as texts of file URLs.
TKSDictionary signingInformation(const Description& description);

}  // namespace tks::codesign

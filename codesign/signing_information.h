#pragma once

#include <tksinterface/TKSValue.h>

#include "codesign/container/code_layout.h"
#include "codesign/trust/certificates.h"

namespace tks::codesign {

/// What a signature says of some code, under the platform's keys. Unsigned code has "main-executable" alone; of a
/// broken signature that what is still in order. Requirements are given as texts, addresses of files as texts of file
/// URLs.
TKSDictionary signingInformation(const CodeLayout& layout, const AppleRoots& roots);

}  // namespace tks::codesign

#pragma once

#include "codesign/Codesign.h"
#include "codesign/container/code_layout.h"
#include "codesign/trust/certificates.h"

namespace tks::codesign {

/// What a signature says of some code. Of certificates the DER form alone, and nothing of single architectures: these
/// cost, and the platform's dictionary does not have them.
Description readDescription(const CodeLayout& layout, const AppleRoots& roots);

/// Adds what the one above left out.
void completeDescription(const CodeLayout& layout, const AppleRoots& roots, Description& description);

}  // namespace tks::codesign

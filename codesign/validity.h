#pragma once

#include <string_view>

#include "codesign/Codesign.h"
#include "codesign/container/code_layout.h"
#include "codesign/trust/certificates.h"

namespace tks::codesign {

/// Checks code: each architecture by its signature, its parts and its pages, then the resources, then nested code. The
/// first thing that is wrong in this order is the outcome.
Outcome checkValidity(const CodeLayout& layout, const AppleRoots& roots, Depth depth);

/// The strict check, and that all code inside is of the same signer.
Outcome checkOneSigner(const CodeLayout& layout, const AppleRoots& roots);

/// Checks the signature of code without its pages and resources, and whether it meets a requirement.
Outcome checkRequirement(const CodeLayout& layout, const AppleRoots& roots, std::string_view requirement);

}  // namespace tks::codesign

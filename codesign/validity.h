#pragma once

#include <string>

#include "codesign/container/code_layout.h"
#include "codesign/container/status.h"
#include "codesign/resources/resource_check.h"
#include "codesign/trust/certificates.h"

namespace tks::codesign {

/// How far a check goes.
enum class Depth {
  /// As the platform checks for all architectures: of nested code its signature, and whether it is the one meant.
  plain,
  /// Nested code as a whole as well, every version of a framework, and everything in the bundle covered or refused: for
  /// code that is about to be installed. Seals of the first version and seals with rules of their own pass when nothing
  /// in the bundle is outside of what they cover.
  strict,
  /// As the platform's assessment judges: nested code as a whole, and no such seal whatever it covers. What a file
  /// browser may have left in the places of the signature and the receipt is not looked for.
  assessing,
};

struct Validity {
  Status status = status::kGood;
  /// The nested code that it is about; empty for the code itself.
  std::string path;
  ResourceProblems problems;

  /// The reason in words, as the platform's error describes itself.
  std::string description() const;
};

/// Checks code: each architecture by its signature, its parts and its pages, then the resources, then nested code. The
/// first thing that is wrong in this order is the answer.
Validity checkValidity(const CodeLayout& layout, const AppleRoots& roots, Depth depth);

}  // namespace tks::codesign

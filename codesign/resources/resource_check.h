#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "codesign/container/code_directory.h"
#include "codesign/container/code_layout.h"
#include "codesign/container/status.h"
#include "codesign/resources/code_resources.h"

namespace tks::codesign {

/// Code inside of code, met while its resources were checked.
struct NestedCode {
  std::string path;         ///< below the support folder
  std::string requirement;  ///< what it has to meet beside its own signature
  /// A version of a framework that is not the current one.
  bool isOtherVersion = false;
};

/// What is wrong with the resources of a bundle.
struct ResourceProblems {
  Status status = status::kGood;  ///< of the gravest problem
  /// Paths below the support folder, the first ones of each kind.
  std::vector<std::string> added;
  std::vector<std::string> altered;  ///< there, but not as sealed
  std::vector<std::string> missing;  ///< sealed, but not there

  bool none() const { return status == status::kGood; }
};

/// How strict a check is.
enum class Strictness {
  /// What the seal names has to be there as it is sealed, and nothing that its rules cover may be added.
  plain,
  /// Nothing that the rules leave out either, and no link that leaves the bundle.
  strict,
  /// Nor anything beside what belongs to it in the places of the signature, the ticket and the receipt, which no seal
  /// covers.
  complete,
};

/// What a check of resources goes by, beside the seal.
struct ResourceScope {
  Strictness strictness = Strictness::plain;  ///< how much is looked at
  /// The requirement that code of the same signer meets; empty for unsigned and ad-hoc signed code.
  std::string sameMaker;
  /// Names of the files that the signature is made of, in its folder.
  std::vector<std::string_view> signatureFiles;
};

/// Compares everything in a bundle with its seal: walks all folders once, and hashes files on several threads
/// meanwhile. Collects the nested code that it meets. Fails when the seal itself or the walk is at fault; what is wrong
/// with single resources is returned.
///
/// In the strict checks a file that the rules leave out counts as added, unless no bundle seals such files. Seals of
/// the first version leave out nested code: it counts as nested code that has to meet `sameMaker`, or as added when
/// that is empty.
ResourceProblems checkResources(const CodeLayout& layout, CodeResources& seal, const DirectorySet& directories,
                                const ResourceScope& scope, std::vector<NestedCode>& nested);

}  // namespace tks::codesign

#pragma once

#include <string_view>

#include <tksinterface/TKSError.h>
#include <tksinterface/TKSURL.h>

namespace tks {

/// What a signature has to show to count as the maker's.
struct MakerRules {
  std::string_view team;
  /// Common names of the three certificates.
  std::string_view leafName;
  std::string_view intermediateName;
  std::string_view rootName;
  /// Beyond names: the chain leads to the root with this SHA-256 (hexadecimal), and the leaf's organizational unit is
  /// the team. Names alone prove little, as anybody can make certificates that carry them.
  bool strict = false;
  std::string_view pinnedRootSHA256;
  /// What the host asks for beside all that, if not empty: a root as above, and the team of both signature and leaf.
  std::string_view alsoRootSHA256 = {};
  std::string_view alsoTeam = {};
};

/// The rules that this library was built with.
const MakerRules& builtInMakerRules();

/// These, and what the options of this process pin.
MakerRules makerRulesInForce();

/// Whether the signature of the bundle at the URL satisfies the rules. `error` as KVRXCodeSignUtil says.
bool signatureSatisfies(const MakerRules& rules, const TKSURL& bundleURL, TKSError* error);

}  // namespace tks

#pragma once

#include <cstdint>
#include <string>

#include "codesign/Codesign.h"
#include "codesign/signing/identity.h"

namespace tks::signing {

using codesign::Storage;

/// How code can be signed, with what only the tests of the checks need.
struct SigningOptions : codesign::SigningOptions {
  /// Null: signed ad hoc, by nobody.
  const Identity* identity = nullptr;
  bool withoutTeam = false;  ///< no team, whatever the certificate says
  /// Version of the directories' format.
  std::uint32_t version = 0x20400;
  std::uint32_t runtimeVersion = 0;  ///< of the hardened run-time; 0: none
  /// Of Mach-O images; other files have one hash over everything.
  std::uint8_t pageSizeLog = 12;
  bool withoutRequirements = false;  ///< the code brings no requirement
  bool linkerSigned = false;         ///< ad hoc by a linker: a directory and nothing else
  bool hashAgility = true;           ///< the message lists the hashes of all directories
  bool topDirectory = false;         ///< a list of the parts that must exist
  bool firstVersionSeal = false;     ///< a seal without the second list
};

/// Signs a bundle, a Mach-O file or any other file in place. Throws codesign::Failure where the engine finds no code or
/// cannot read it, std::runtime_error when anything else fails.
void sign(const std::string& path, const SigningOptions& options);

}  // namespace tks::signing

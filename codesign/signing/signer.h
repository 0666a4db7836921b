#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "codesign/container/digest.h"
#include "codesign/signing/identity.h"

namespace tks::signing {

/// Where the signature of a file that is no Mach-O image goes.
enum class Storage {
  automatic,   ///< a bundle's folder; a single file's attributes, or the side-car when they do not fit
  attributes,  ///< extended attributes of the file
  sideCar,     ///< an AppleDouble file beside it
  folder,      ///< the bundle's _CodeSignature
};

struct SigningOptions {
  /// Null: signed ad hoc, by nobody.
  const Identity* identity = nullptr;
  /// Empty: the bundle's identifier, else the file's name.
  std::string identifier;
  /// Empty: the organizational unit of the signer's certificate.
  std::string team;
  bool withoutTeam = false;
  /// The first is the primary directory's, the others are alternates.
  std::vector<codesign::HashType> hashTypes{codesign::HashType::sha256};
  std::uint32_t flags = 0;
  std::uint32_t version = 0x20400;
  std::uint32_t runtimeVersion = 0;
  std::uint8_t pageSizeLog = 12;
  std::string entitlements;  ///< a property list in XML form
  std::string requirement;   ///< the designated requirement; empty: none of its own
  bool withoutRequirements = false;
  bool linkerSigned = false;  ///< ad hoc by a linker: a directory and nothing else
  bool hashAgility = true;
  bool topDirectory = false;
  bool firstVersionSeal = false;
  std::optional<std::time_t> signingTime;
  std::optional<std::time_t> timeStamp;
  Storage storage = Storage::automatic;
};

/// Signs a bundle, a Mach-O file or any other file in place. Throws std::runtime_error when that fails.
void sign(const std::string& path, const SigningOptions& options);

}  // namespace tks::signing

#pragma once

#include <ctime>
#include <optional>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "codesign/container/digest.h"
#include "codesign/signing/identity.h"

namespace tks::signing {

struct MessageOptions {
  /// The two attributes that list all directories: their short hashes, and their full ones.
  bool hashList = true;
  bool hashSet = true;                       ///< the one with the full hashes
  std::optional<std::time_t> signingTime{};  ///< as the signer claims; nothing: not said
  /// A token of the identity's own time-stamping authority, of this moment.
  std::optional<std::time_t> timeStamp{};
  /// What the message digests the directory with, by OpenSSL's name.
  const char* digest = "SHA256";
};

/// A directory with its hash type.
struct SignedDirectory {
  codesign::HashType type;  ///< by which its hash is taken
  TKSData blob;             ///< the directory as it stands in the signature
};

/// Signs directories, the first of which is the primary one: a detached message in DER form.
TKSData signDirectories(const Identity& identity, const std::vector<SignedDirectory>& directories,
                        const MessageOptions& options);

}  // namespace tks::signing

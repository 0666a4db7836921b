#pragma once

#include <openssl/types.h>

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "codesign/Codesign.h"
#include "codesign/trust/certificates.h"

namespace tks::signing {

struct KeyDeleter {
  void operator()(EVP_PKEY* key) const;
};
using Key = std::unique_ptr<EVP_PKEY, KeyDeleter>;
using codesign::Certificate;

/// Who signs: a key, and the chain of its certificate, leaf first.
struct Identity {
  Key key;                         ///< of the leaf
  std::vector<Certificate> chain;  ///< leaf first, root last
  /// A time-stamping authority under the same root; empty when there is none.
  Key stampKey;
  Certificate stampCertificate;  ///< of the same authority
  /// The key of the authority that signed the leaf; empty for identities that were loaded.
  Key authorityKey;

  X509* leaf() const { return chain.front().get(); }
};

/// What identities can be made of, with what only the tests of the checks need.
struct IdentityPlan : codesign::IdentityPlan {
  bool codeSigningUsage = true;              ///< the leaf may sign code
  bool digitalSignature = true;              ///< the leaf's key may sign at all
  bool unknownCriticalExtension = false;     ///< the leaf has a critical extension that nobody knows
  bool intermediateIsAuthority = true;       ///< the intermediate certificate may sign others
  bool rsa = true;                           ///< else an elliptic curve, which is made faster
  std::string certificateDigest = "SHA256";  ///< what certificates are signed over
  std::time_t notBefore = 0;                 ///< 0: yesterday
  std::time_t notAfter = 0;                  ///< 0: in ten years
  std::string issueDate{};                   ///< what the leaf's mark of its issue date says; empty: no such mark
};

/// Makes keys and certificates. Throws std::runtime_error when that fails.
Identity makeIdentity(const IdentityPlan& plan);
/// The same signer with a new key and a new certificate, by the same authority. Throws when its key was not kept.
Identity renewedIdentity(const Identity& identity);

/// Files key.pem, chain.pem (leaf first), root.pem, tsa-key.pem and tsa.pem in a folder, which is made; keys are
/// readable by their owner only.
void saveIdentity(const Identity& identity, const std::string& folder);
/// An identity from such a folder.
Identity loadIdentity(const std::string& folder);
/// From a key file and a file with the chain, leaf first, both PEM.
Identity loadIdentity(const std::string& keyFile, const std::string& chainFile);
/// From a PKCS #12 file.
Identity loadIdentityFromPkcs12(const std::string& file, const std::string& password);

/// SHA-256 of a certificate in hexadecimal.
std::string fingerprintOf(X509* certificate);

}  // namespace tks::signing

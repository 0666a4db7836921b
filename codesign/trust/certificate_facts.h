#pragma once

#include <openssl/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include <tksinterface/TKSValue.h>

#include "codesign/trust/certificates.h"

// What requirements ask of certificates.

namespace tks::codesign {

/// A certificate of a chain: 0 the leaf, -1 the root. A null pointer when there is none.
X509* certificateAt(const Chain& chain, std::int32_t slot);
/// A field of the subject by the key that requirements have for it, its first value; nothing when there is none.
TKSValue subjectField(X509* certificate, std::string_view key);
/// What an extension holds, as text when it is one, else its bytes; `identifier` in DER form.
TKSValue extensionValue(X509* certificate, std::string_view identifier);
/// Whether the certificate names a policy; `identifier` in DER form.
bool hasPolicy(X509* certificate, std::string_view identifier);
/// The SHA-1 hash by which requirements name a certificate; empty when it cannot be had.
std::string hashOfCertificate(X509* certificate);
/// Code of the platform maker's own: its root, and its intermediate authority for software.
bool isSignedByApple(const Chain& chain, const AppleRoots* roots);

/// An object identifier in dotted form as DER content, and back. Empty when it is malformed.
std::string encodeIdentifier(std::string_view dotted);
std::string decodeIdentifier(std::string_view encoded);

}  // namespace tks::codesign

#pragma once

#include <openssl/types.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "codesign/container/byte_source.h"
#include "codesign/container/status.h"

namespace tks::codesign {

struct CertificateDeleter {
  void operator()(X509* certificate) const;
};
/// A certificate of our own.
using Certificate = std::unique_ptr<X509, CertificateDeleter>;

/// A chain as it was evaluated: leaf first, then the issuer of each. The certificates belong to
/// somebody else.
using Chain = std::vector<X509*>;

/// SHA-256 of certificates that are roots of the platform's maker.
struct AppleRoots {
  std::vector<std::array<std::uint8_t, 32>> digests;  ///< any number, in any order

  bool contains(X509* certificate) const;
  /// The three that exist.
  static const AppleRoots& builtIn();
};

/// Parses a certificate in DER form; a null pointer when it is malformed.
Certificate parseCertificate(Bytes der);
TKSData derOf(X509* certificate);

/// The most specific common name of the subject, in UTF-8.
std::optional<std::string> commonNameOf(X509* certificate);
/// The same of who issued it.
std::optional<std::string> issuerNameOf(X509* certificate);
/// The first organizational unit of the subject, in UTF-8.
std::optional<std::string> organizationalUnitOf(X509* certificate);
/// A field of the subject by object identifier in dotted form, in UTF-8; all its values.
std::vector<std::string> subjectFields(X509* certificate, const std::string& identifier);
/// Whether a certificate has an extension; `identifier` in dotted form.
bool hasExtension(X509* certificate, const std::string& identifier);
/// What an extension holds, in DER form.
std::optional<TKSData> extensionOf(X509* certificate, const std::string& identifier);

bool isSelfSigned(X509* certificate);
bool isValidAt(X509* certificate, std::time_t moment);
/// Whether the extended key usage is there and names this usage.
bool hasUsage(X509* certificate, int usage);
/// Whether the key may sign, as far as the certificate says.
bool maySign(X509* certificate);

/// Finds the chain of a leaf among carried certificates, by names and key identifiers. Its last certificate is
/// self-signed when the chain is complete.
Chain buildChain(X509* leaf, const std::vector<X509*>& carried);

/// Whether each signature, basic constraint and path length of a chain is in order, whatever the dates; the last
/// certificate is taken as the anchor. 0, or the status that says what is wrong.
Status verifyChain(const Chain& chain);

/// Whether two chains are of one maker: of the same leaf, or of the same root and organizational unit.
bool isSameMaker(const Chain& one, const Chain& other);

/// Whether a digest function, by OpenSSL's number, is one for which nobody can make two contents of one digest at will.
/// SHA-1 counts as one: what was signed long ago has nothing else.
bool isSoundDigest(int function);

/// Whether a chain is one of the platform's developer programme: it ends in one of the maker's roots and its leaf
/// carries the programme's mark.
bool isDeveloperChain(const Chain& chain, const AppleRoots& roots);

}  // namespace tks::codesign

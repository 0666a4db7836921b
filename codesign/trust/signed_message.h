#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "codesign/container/byte_source.h"
#include "codesign/trust/certificates.h"

using CMS_ContentInfo = struct CMS_ContentInfo_st;
using CMS_SignerInfo = struct CMS_SignerInfo_st;

namespace tks::codesign {

struct CmsDeleter {
  void operator()(CMS_ContentInfo* message) const;
};

/// A message of cryptographic message syntax that holds signed data, with the certificates that it carries.
class SignedMessage {
 public:
  /// Decodes a message; whatever follows it is ignored. Nothing when it cannot be decoded.
  static std::optional<SignedMessage> decode(Bytes encoded);
  /// Whether it can be decoded.
  static bool isOne(Bytes encoded);
  SignedMessage(SignedMessage&&) noexcept = default;
  SignedMessage& operator=(SignedMessage&&) = delete;
  ~SignedMessage();

  /// Verifies the one signer's signature over content that stands elsewhere. False when anything does not match.
  bool verify(const ByteSource& content);
  /// The same over the content inside, which is returned.
  std::optional<TKSData> verifyContentInside();

  CMS_ContentInfo* message() const { return message_.get(); }
  CMS_SignerInfo* signer() const;
  /// The signer's certificate, once verified.
  X509* signerCertificate() const;
  const std::vector<X509*>& carried() const { return carried_; }

 private:
  explicit SignedMessage(CMS_ContentInfo* message);
  bool verifyWith(BIO* content, BIO* out);

  std::unique_ptr<CMS_ContentInfo, CmsDeleter> message_;
  std::vector<X509*> carried_;  ///< owned, one reference each
};

}  // namespace tks::codesign

#include "codesign/trust/signed_message.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <cstddef>
#include <span>

#include "codesign/container/digest.h"
#include "codesign/container/status.h"
#include "codesign/trust/ber_structure.h"

namespace tks::codesign {
namespace {

/// Nine kilobytes are usual; decoding takes a multiple of the size.
constexpr std::size_t kLargestMessage = std::size_t{1} << 20;

struct BioDeleter {
  void operator()(BIO* bio) const { ::BIO_free_all(bio); }
};
using OwnedBio = std::unique_ptr<BIO, BioDeleter>;

// A BIO that reads a ByteSource, so that a directory of any size is hashed without being in memory.

struct SourceReader {
  ByteSource source;
  std::uint64_t offset = 0;
};

int readSource(BIO* bio, char* into, std::size_t size, std::size_t* count) {
  auto* reader = static_cast<SourceReader*>(::BIO_get_data(bio));
  try {
    *count = reader->source.read(reader->offset, std::span(reinterpret_cast<std::uint8_t*>(into), size));
  } catch (...) {
    return -1;  // no exception passes through OpenSSL; the digest will not match
  }
  reader->offset += *count;
  return *count > 0 ? 1 : 0;
}

long controlSource(BIO*, int command, long, void*) { return command == BIO_CTRL_FLUSH ? 1 : 0; }

const BIO_METHOD* sourceMethod() {
  static const BIO_METHOD* const method = [] {
    BIO_METHOD* made = ::BIO_meth_new(::BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "byte source");
    if (made == nullptr) return made;
    ::BIO_meth_set_read_ex(made, readSource);
    ::BIO_meth_set_ctrl(made, controlSource);
    return made;
  }();
  return method;
}

OwnedBio bioOver(SourceReader& reader) {
  OwnedBio bio(::BIO_new(sourceMethod()));
  if (bio == nullptr) fail(status::kNotEnoughMemory);
  ::BIO_set_data(bio.get(), &reader);
  ::BIO_set_init(bio.get(), 1);
  return bio;
}

/// The signed content type must equal the message's.
bool isSignedAsItsType(CMS_ContentInfo* message, CMS_SignerInfo* signer) {
  const int at = ::CMS_signed_get_attr_by_NID(signer, NID_pkcs9_contentType, -1);
  if (at < 0) return true;  // nothing but the content is signed then
  const auto* type = static_cast<const ASN1_OBJECT*>(
      ::X509_ATTRIBUTE_get0_data(::CMS_signed_get_attr(signer, at), 0, V_ASN1_OBJECT, nullptr));
  return type != nullptr && ::OBJ_cmp(type, ::CMS_get0_eContentType(message)) == 0;
}

/// Whether the algorithm of the signature is one for the signer's key. OpenSSL goes by the key alone when it is on a
/// curve.
bool isSignedByItsAlgorithm(CMS_SignerInfo* signer) {
  EVP_PKEY* key = nullptr;
  X509_ALGOR* digest = nullptr;
  X509_ALGOR* algorithm = nullptr;
  ::CMS_SignerInfo_get0_algs(signer, &key, nullptr, &digest, &algorithm);
  if (key == nullptr || ::EVP_PKEY_get_base_id(key) != EVP_PKEY_EC) return true;
  int ownDigest = NID_undef;
  int ownKey = NID_undef;
  const int own = ::OBJ_obj2nid(algorithm->algorithm);
  if (own == NID_X9_62_id_ecPublicKey) return true;
  return ::OBJ_find_sigid_algs(own, &ownDigest, &ownKey) == 1 && ownKey == NID_X9_62_id_ecPublicKey &&
         ownDigest == ::OBJ_obj2nid(digest->algorithm);
}

/// Whether the signed bytes were digested by a sound function.
bool isDigestedSoundly(CMS_SignerInfo* signer) {
  X509_ALGOR* digest = nullptr;
  ::CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, nullptr);
  return digest != nullptr && isSoundDigest(::OBJ_obj2nid(digest->algorithm));
}

}  // namespace

void CmsDeleter::operator()(CMS_ContentInfo* message) const { ::CMS_ContentInfo_free(message); }

SignedMessage::SignedMessage(CMS_ContentInfo* message) : message_(message) {
  STACK_OF(X509)* certificates = ::CMS_get1_certs(message);
  for (int i = 0; i < sk_X509_num(certificates); ++i) carried_.push_back(sk_X509_value(certificates, i));
  sk_X509_free(certificates);
}

SignedMessage::~SignedMessage() {
  for (X509* certificate : carried_) ::X509_free(certificate);
}

std::optional<SignedMessage> SignedMessage::decode(Bytes encoded) {
  if (encoded.size() > kLargestMessage || !isWellNested(encoded)) return std::nullopt;
  CMS_ContentInfo* message = ::CMS_ContentInfo_new_ex(Cryptography::shared().context(), nullptr);
  const unsigned char* at = encoded.data();
  if (message == nullptr || ::d2i_CMS_ContentInfo(&message, &at, static_cast<long>(encoded.size())) == nullptr) {
    return std::nullopt;
  }
  SignedMessage result(message);
  if (::OBJ_obj2nid(::CMS_get0_type(message)) != NID_pkcs7_signed) return std::nullopt;
  return result;
}

bool SignedMessage::isOne(Bytes encoded) {
  const ErrorQueueGuard guard;
  return decode(encoded).has_value();
}

bool SignedMessage::verifyWith(BIO* content, BIO* out) {
  if (sk_CMS_SignerInfo_num(::CMS_get0_SignerInfos(message_.get())) != 1) return false;
  if (!isSignedAsItsType(message_.get(), signer()) || !isDigestedSoundly(signer())) return false;
  return ::CMS_verify(message_.get(), nullptr, nullptr, content, out, CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY) == 1 &&
         isSignedByItsAlgorithm(signer());
}

bool SignedMessage::verify(const ByteSource& content) {
  ASN1_OCTET_STRING** inside = ::CMS_get0_content(message_.get());
  if (inside == nullptr || *inside != nullptr) return false;
  SourceReader reader{content, 0};
  const OwnedBio bio = bioOver(reader);
  return verifyWith(bio.get(), nullptr);
}

std::optional<TKSData> SignedMessage::verifyContentInside() {
  const OwnedBio out(::BIO_new(::BIO_s_mem()));
  if (out == nullptr || !verifyWith(nullptr, out.get())) return std::nullopt;
  const char* start = nullptr;
  const long size = ::BIO_get_mem_data(out.get(), &start);
  return TKSData(start, start + size);
}

CMS_SignerInfo* SignedMessage::signer() const {
  return sk_CMS_SignerInfo_value(::CMS_get0_SignerInfos(message_.get()), 0);
}

X509* SignedMessage::signerCertificate() const {
  X509* certificate = nullptr;
  ::CMS_SignerInfo_get0_algs(signer(), nullptr, &certificate, nullptr, nullptr);
  return certificate;
}

}  // namespace tks::codesign

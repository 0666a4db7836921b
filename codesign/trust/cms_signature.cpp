#include "codesign/trust/cms_signature.h"

#include <openssl/asn1.h>
#include <openssl/asn1t.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

#include "codesign/container/digest.h"
#include "codesign/container/status.h"
#include "codesign/trust/ber_structure.h"
#include "codesign/trust/time_stamp.h"
#include "platform/platform.h"

namespace tks::codesign {
namespace {

/// Nine kilobytes are usual; decoding takes a multiple of the size.
constexpr std::size_t kLargestMessage = std::size_t{1} << 20;

constexpr const char* kHashAgilityList = "1.2.840.113635.100.9.1";
constexpr const char* kHashAgilitySet = "1.2.840.113635.100.9.2";

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

// Attributes.

struct ObjectDeleter {
  void operator()(ASN1_OBJECT* object) const { ::ASN1_OBJECT_free(object); }
};

X509_ATTRIBUTE* signedAttribute(CMS_SignerInfo* signer, const char* identifier) {
  const std::unique_ptr<ASN1_OBJECT, ObjectDeleter> object(::OBJ_txt2obj(identifier, 1));
  const int at = ::CMS_signed_get_attr_by_OBJ(signer, object.get(), -1);
  return at < 0 ? nullptr : ::CMS_signed_get_attr(signer, at);
}

Bytes bytesOf(const ASN1_STRING* text) {
  return {::ASN1_STRING_get0_data(text), static_cast<std::size_t>(::ASN1_STRING_length(text))};
}

/// Attribute 9.1: a property list of all directories' short hashes in the order of their types.
void checkHashList(CMS_SignerInfo* signer, const DirectorySet& directories) {
  X509_ATTRIBUTE* attribute = signedAttribute(signer, kHashAgilityList);
  if (attribute == nullptr) return;
  const auto* content =
      static_cast<const ASN1_STRING*>(::X509_ATTRIBUTE_get0_data(attribute, 0, V_ASN1_OCTET_STRING, nullptr));
  if (::X509_ATTRIBUTE_count(attribute) != 1 || content == nullptr) fail(status::kSignatureFailed);
  const TKSValue list = platform::propertyLists().parse(bytesOf(content), nullptr);
  TKSArray own;
  for (const auto& [number, directory] : directories.byType()) {
    if (hashTypeOf(number)) own.append(directory.cdHash());
  }
  if (list["cdhashes"] != TKSValue(own)) fail(status::kSignatureFailed);
}

/// One value of attribute 9.2: SEQUENCE { digest OBJECT IDENTIFIER, hash OCTET STRING }.
std::optional<std::pair<int, TKSData>> readHash(X509_ATTRIBUTE* attribute, int index) {
  const ASN1_TYPE* value = ::X509_ATTRIBUTE_get0_type(attribute, index);
  if (value == nullptr || value->type != V_ASN1_SEQUENCE) return std::nullopt;
  const unsigned char* at = value->value.sequence->data;
  ASN1_SEQUENCE_ANY* parts = ::d2i_ASN1_SEQUENCE_ANY(nullptr, &at, value->value.sequence->length);
  if (parts == nullptr) return std::nullopt;
  std::optional<std::pair<int, TKSData>> result;
  if (sk_ASN1_TYPE_num(parts) == 2) {
    const ASN1_TYPE* function = sk_ASN1_TYPE_value(parts, 0);
    const ASN1_TYPE* hash = sk_ASN1_TYPE_value(parts, 1);
    if (function->type == V_ASN1_OBJECT && hash->type == V_ASN1_OCTET_STRING) {
      const Bytes bytes = bytesOf(hash->value.octet_string);
      result.emplace(::OBJ_obj2nid(function->value.object), TKSData(bytes.begin(), bytes.end()));
    }
  }
  sk_ASN1_TYPE_pop_free(parts, ::ASN1_TYPE_free);
  return result;
}

int functionNumber(HashType type) {
  switch (type) {
    case HashType::sha1:
      return NID_sha1;
    case HashType::sha384:
      return NID_sha384;
    case HashType::sha256:
    case HashType::sha256Truncated:
      break;
  }
  return NID_sha256;
}

/// Attribute 9.2: the full hash of every directory, so that none can be taken away.
void checkHashSet(CMS_SignerInfo* signer, const DirectorySet& directories) {
  X509_ATTRIBUTE* attribute = signedAttribute(signer, kHashAgilitySet);
  if (attribute == nullptr) return;
  if (static_cast<std::size_t>(::X509_ATTRIBUTE_count(attribute)) != directories.size()) fail(status::kSignatureFailed);
  std::map<int, TKSData> hashes;
  for (int i = 0; i < ::X509_ATTRIBUTE_count(attribute); ++i) {
    std::optional<std::pair<int, TKSData>> hash = readHash(attribute, i);
    if (!hash) fail(status::kSignatureFailed);
    hashes.insert(std::move(*hash));
  }
  for (const HashType type : directories.types()) {
    const auto found = hashes.find(functionNumber(type));
    const Digest& own = directories.byType().at(static_cast<std::uint8_t>(type)).fullHash();
    if (found == hashes.end() || !own.matches(found->second)) fail(status::kSignatureFailed);
  }
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

/// Of several directories the message has to name all: it is a signature over one of them.
void checkDirectoriesAreNamed(CMS_SignerInfo* signer, const DirectorySet& directories) {
  const bool hasList = signedAttribute(signer, kHashAgilityList) != nullptr;
  const bool hasSet = signedAttribute(signer, kHashAgilitySet) != nullptr;
  if (directories.size() > 1 && !hasList && !hasSet) fail(status::kSignatureFailed);
}

std::optional<std::time_t> claimedTime(CMS_SignerInfo* signer) {
  const int at = ::CMS_signed_get_attr_by_NID(signer, NID_pkcs9_signingTime, -1);
  X509_ATTRIBUTE* attribute = at < 0 ? nullptr : ::CMS_signed_get_attr(signer, at);
  const ASN1_TYPE* value = attribute == nullptr ? nullptr : ::X509_ATTRIBUTE_get0_type(attribute, 0);
  if (value == nullptr || (value->type != V_ASN1_UTCTIME && value->type != V_ASN1_GENERALIZEDTIME)) return std::nullopt;
  std::tm parts{};
  if (::ASN1_TIME_to_tm(value->value.utctime, &parts) != 1) return std::nullopt;
  return ::timegm(&parts);
}

/// The time-stamp token of a signer, in DER form. Any other unsigned attribute without it makes the signature bad.
std::optional<Bytes> timeStampToken(CMS_SignerInfo* signer) {
  if (::CMS_unsigned_get_attr_count(signer) <= 0) return std::nullopt;
  const int at = ::CMS_unsigned_get_attr_by_NID(signer, NID_id_smime_aa_timeStampToken, -1);
  X509_ATTRIBUTE* attribute = at < 0 ? nullptr : ::CMS_unsigned_get_attr(signer, at);
  const ASN1_TYPE* value = attribute == nullptr ? nullptr : ::X509_ATTRIBUTE_get0_type(attribute, 0);
  if (value == nullptr || value->type != V_ASN1_SEQUENCE) fail(status::kSignatureFailed);
  return bytesOf(value->value.sequence);
}

/// The certificates of a chain as the evaluation of trust wants them, at the moment of signing.
void checkTrust(const Chain& chain, const DirectorySet& directories, const std::optional<TimeStamp>& stamp,
                std::optional<std::time_t> claimed, const AppleRoots& roots) {
  if (const Status status = verifyChain(chain); status != status::kGood) fail(status);
  if (!hasUsage(chain.front(), NID_code_sign)) fail(status::kInvalidExtendedKeyUsage);
  if (!maySign(chain.front())) fail(status::kInvalidKeyUsage);

  // Without a certified time nobody knows when it was signed, and expiry is tolerated unless the code asks for it.
  if (stamp || directories.best().hasFlag(directory_flag::kExpires)) {
    const std::time_t moment = stamp ? stamp->moment : claimed.value_or(std::time(nullptr));
    const auto isValid = [&](X509* certificate) { return isValidAt(certificate, moment); };
    if (!std::ranges::all_of(chain, isValid)) fail(status::kExpired);
  }
  // If the signer chains to the maker's root, the time stamp must too.
  if (stamp && !stamp->isFromApple && roots.contains(chain.back())) fail(status::kNotTrusted);

  const std::optional<std::string>& team = directories.best().team();
  if (team && isDeveloperChain(chain, roots) && organizationalUnitOf(chain.front()) != team) {
    fail(status::kBadTeamIdentifier);
  }
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

Chain Signer::view() const {
  Chain view;
  for (const Certificate& certificate : chain) view.push_back(certificate.get());
  return view;
}

Signer verifySignature(Bytes encoded, const DirectorySet& directories, const AppleRoots& roots) {
  const ErrorQueueGuard guard;
  std::optional<SignedMessage> message = SignedMessage::decode(encoded);
  if (!message) fail(status::kUnknownFormat);
  if (!message->verify(directories.primary().blob())) fail(status::kSignatureFailed);

  Signer signer;
  const Chain chain = buildChain(message->signerCertificate(), message->carried());
  std::optional<TimeStamp> stamp;
  if (const std::optional<Bytes> token = timeStampToken(message->signer())) {
    stamp = verifyTimeStamp(*token, bytesOf(::CMS_SignerInfo_get0_signature(message->signer())), chain, roots);
    signer.certifiedTime = stamp->moment;
  }
  checkDirectoriesAreNamed(message->signer(), directories);
  checkHashList(message->signer(), directories);
  checkHashSet(message->signer(), directories);
  signer.claimedTime = claimedTime(message->signer());
  checkTrust(chain, directories, stamp, signer.claimedTime, roots);

  for (X509* certificate : chain) {
    signer.certificates.push_back(derOf(certificate));
    ::X509_up_ref(certificate);
    signer.chain.emplace_back(certificate);
  }
  return signer;
}

}  // namespace tks::codesign

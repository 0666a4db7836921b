#include "codesign/trust/cms_signature.h"

#include <openssl/asn1.h>
#include <openssl/asn1t.h>
#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>
#include <map>
#include <utility>

#include "codesign/container/digest.h"
#include "codesign/container/status.h"
#include "codesign/trust/time_stamp.h"
#include "platform/platform.h"

namespace tks::codesign {
namespace {

constexpr const char* kHashAgilityList = "1.2.840.113635.100.9.1";
constexpr const char* kHashAgilitySet = "1.2.840.113635.100.9.2";

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

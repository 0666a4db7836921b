#include "codesign/signing/message.h"

#include <openssl/asn1t.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/objects.h>
#include <openssl/ts.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>

#include "platform/platform.h"

namespace tks::signing {
namespace {

using codesign::HashType;

template <class Result>
Result require(Result result, const char* step) {
  if (!result) throw std::runtime_error(std::string("cannot ") + step);
  return result;
}

TKSData bytesOf(BIO* bio) {
  const char* start = nullptr;
  const long size = ::BIO_get_mem_data(bio, &start);
  return {start, start + size};
}

struct BioDeleter {
  void operator()(BIO* bio) const { ::BIO_free_all(bio); }
};
using Bio = std::unique_ptr<BIO, BioDeleter>;

/// Attribute 9.1: the short hashes by ascending type, as a property list.
void addHashList(CMS_SignerInfo* signer, std::vector<SignedDirectory> directories) {
  std::ranges::sort(directories, {}, &SignedDirectory::type);
  TKSArray hashes;
  for (const SignedDirectory& directory : directories) {
    const codesign::Digest digest = codesign::hashOf(codesign::ByteSource(directory.blob), directory.type, true);
    hashes.append(TKSData(digest.storage.begin(), digest.storage.begin() + 20));
  }
  TKSDictionary list;
  list.set("cdhashes", hashes);
  const std::optional<TKSData> xml =
      platform::propertyLists().serialize(list, platform::PropertyLists::Format::xml, nullptr);
  ASN1_OBJECT* object = ::OBJ_txt2obj("1.2.840.113635.100.9.1", 1);
  require(
      ::CMS_signed_add1_attr_by_OBJ(signer, object, V_ASN1_OCTET_STRING, xml->data(), static_cast<int>(xml->size())),
      "add an attribute");
  ::ASN1_OBJECT_free(object);
}

void appendDer(TKSData& out, std::uint8_t tag, const TKSData& content) {
  out.push_back(tag);
  out.push_back(static_cast<std::uint8_t>(content.size()));  // all of ours are short
  out.insert(out.end(), content.begin(), content.end());
}

TKSData identifierOf(HashType type) {
  const int number = type == HashType::sha1 ? NID_sha1 : type == HashType::sha384 ? NID_sha384 : NID_sha256;
  const ASN1_OBJECT* object = ::OBJ_nid2obj(number);
  return {::OBJ_get0_data(object), ::OBJ_get0_data(object) + ::OBJ_length(object)};
}

/// Attribute 9.2: the full hashes, a value each.
void addHashSet(CMS_SignerInfo* signer, const std::vector<SignedDirectory>& directories) {
  X509_ATTRIBUTE* attribute = ::X509_ATTRIBUTE_new();
  ASN1_OBJECT* object = ::OBJ_txt2obj("1.2.840.113635.100.9.2", 1);
  ::X509_ATTRIBUTE_set1_object(attribute, object);
  ::ASN1_OBJECT_free(object);
  for (const SignedDirectory& directory : directories) {
    const codesign::Digest digest = codesign::hashOf(codesign::ByteSource(directory.blob), directory.type, true);
    TKSData parts;
    appendDer(parts, V_ASN1_OBJECT, identifierOf(directory.type));
    appendDer(parts, V_ASN1_OCTET_STRING, TKSData(digest.bytes().begin(), digest.bytes().end()));
    TKSData sequence;
    appendDer(sequence, V_ASN1_SEQUENCE | V_ASN1_CONSTRUCTED, parts);
    require(::X509_ATTRIBUTE_set1_data(attribute, V_ASN1_SEQUENCE, sequence.data(), static_cast<int>(sequence.size())),
            "add a value");
  }
  require(::CMS_signed_add1_attr(signer, attribute), "add an attribute");
  ::X509_ATTRIBUTE_free(attribute);
}

void addSigningTime(CMS_SignerInfo* signer, std::time_t moment) {
  ASN1_TIME* time = ::ASN1_TIME_set(nullptr, moment);
  require(::CMS_signed_add1_attr_by_NID(signer, NID_pkcs9_signingTime, time->type, time, -1), "add the time");
  ::ASN1_TIME_free(time);
}

ASN1_INTEGER* serialNumber(TS_RESP_CTX*, void*) {
  ASN1_INTEGER* number = ::ASN1_INTEGER_new();
  ::ASN1_INTEGER_set(number, 1);
  return number;
}

int stampMoment(TS_RESP_CTX*, void* data, long* seconds, long* microseconds) {
  *seconds = static_cast<long>(*static_cast<std::time_t*>(data));
  *microseconds = 0;
  return 1;
}

/// A time-stamp token over a signature value, as an authority would answer a request.
TKSData makeToken(const Identity& identity, const ASN1_OCTET_STRING* signature, std::time_t moment) {
  const codesign::Digest digest =
      codesign::Hasher(HashType::sha256)
          .hash({::ASN1_STRING_get0_data(signature), static_cast<std::size_t>(::ASN1_STRING_length(signature))});
  TS_REQ* request = ::TS_REQ_new();
  ::TS_REQ_set_version(request, 1);
  TS_MSG_IMPRINT* imprint = ::TS_MSG_IMPRINT_new();
  X509_ALGOR* function = ::X509_ALGOR_new();
  ::X509_ALGOR_set0(function, ::OBJ_nid2obj(NID_sha256), V_ASN1_NULL, nullptr);
  ::TS_MSG_IMPRINT_set_algo(imprint, function);
  TKSData hash(digest.bytes().begin(), digest.bytes().end());
  ::TS_MSG_IMPRINT_set_msg(imprint, hash.data(), static_cast<int>(hash.size()));
  ::TS_REQ_set_msg_imprint(request, imprint);
  ::TS_REQ_set_cert_req(request, 1);
  ::X509_ALGOR_free(function);
  ::TS_MSG_IMPRINT_free(imprint);

  TS_RESP_CTX* context = ::TS_RESP_CTX_new();
  ::TS_RESP_CTX_set_signer_cert(context, identity.stampCertificate.get());
  ::TS_RESP_CTX_set_signer_key(context, identity.stampKey.get());
  ::TS_RESP_CTX_set_signer_digest(context, ::EVP_sha256());
  STACK_OF(X509)* certificates = sk_X509_new_null();
  sk_X509_push(certificates, identity.chain.back().get());
  ::TS_RESP_CTX_set_certs(context, certificates);
  sk_X509_free(certificates);
  ASN1_OBJECT* policy = ::OBJ_txt2obj("1.2.3.4.1", 1);
  ::TS_RESP_CTX_set_def_policy(context, policy);
  ::ASN1_OBJECT_free(policy);
  ::TS_RESP_CTX_add_md(context, ::EVP_sha256());
  ::TS_RESP_CTX_set_serial_cb(context, serialNumber, nullptr);
  ::TS_RESP_CTX_set_time_cb(context, stampMoment, &moment);
  const Bio encoded(::BIO_new(::BIO_s_mem()));
  ::i2d_TS_REQ_bio(encoded.get(), request);
  ::TS_REQ_free(request);
  TS_RESP* response = ::TS_RESP_create_response(context, encoded.get());
  ::TS_RESP_CTX_free(context);
  PKCS7* token = response == nullptr ? nullptr : ::TS_RESP_get_token(response);
  require(token, "make a time stamp");
  const Bio out(::BIO_new(::BIO_s_mem()));
  ::i2d_PKCS7_bio(out.get(), token);
  TKSData result = bytesOf(out.get());
  ::TS_RESP_free(response);
  return result;
}

}  // namespace

TKSData signDirectories(const Identity& identity, const std::vector<SignedDirectory>& directories,
                        const MessageOptions& options) {
  constexpr unsigned kFlags = CMS_DETACHED | CMS_BINARY | CMS_PARTIAL | CMS_NOSMIMECAP;
  CMS_ContentInfo* message = require(::CMS_sign(nullptr, nullptr, nullptr, nullptr, kFlags), "begin a message");
  CMS_SignerInfo* signer = require(
      ::CMS_add1_signer(message, identity.leaf(), identity.key.get(), ::EVP_get_digestbyname(options.digest), kFlags),
      "add the signer");
  if (options.hashList) addHashList(signer, directories);
  if (options.hashSet) addHashSet(signer, directories);
  addSigningTime(signer, options.signingTime.value_or(std::time(nullptr)));
  for (std::size_t i = 1; i < identity.chain.size(); ++i) ::CMS_add1_cert(message, identity.chain[i].get());
  const TKSData& content = directories.front().blob;
  const Bio bio(::BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
  require(::CMS_final(message, bio.get(), nullptr, kFlags), "sign");
  if (options.timeStamp) {
    const TKSData token = makeToken(identity, ::CMS_SignerInfo_get0_signature(signer), *options.timeStamp);
    require(::CMS_unsigned_add1_attr_by_NID(signer, NID_id_smime_aa_timeStampToken, V_ASN1_SEQUENCE, token.data(),
                                            static_cast<int>(token.size())),
            "add the time stamp");
  }
  const Bio out(::BIO_new(::BIO_s_mem()));
  require(::i2d_CMS_bio(out.get(), message), "encode the message");
  ::CMS_ContentInfo_free(message);
  return bytesOf(out.get());
}

}  // namespace tks::signing

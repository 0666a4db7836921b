#include "codesign/signing/identity.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include "codesign/container/digest.h"
#include "foundation/values/Hexadecimal.h"

namespace tks::signing {
namespace {

constexpr std::time_t kDay = 24 * 60 * 60;

template <class Result>
Result require(Result result, const char* step) {
  if (!result) throw std::runtime_error(std::string("cannot ") + step);
  return result;
}

Key makeKey(bool rsa) {
  return Key(require(rsa ? ::EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{2048})
                         : ::EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"),
                     "make a key"));
}

void addName(X509_NAME* name, const char* field, const std::string& value) {
  if (value.empty()) return;
  const auto* text = reinterpret_cast<const unsigned char*>(value.c_str());
  require(::X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8, text, -1, -1, 0), "name a certificate");
}

void addExtension(X509* certificate, X509* issuer, int kind, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = require(::X509V3_EXT_conf_nid(nullptr, &context, kind, value), "make an extension");
  ::X509_add_ext(certificate, extension, -1);
  ::X509_EXTENSION_free(extension);
}

/// One of the marks by which authorities are told: an extension that holds an ASN.1 NULL, or a text.
void addMark(X509* certificate, const char* identifier, bool critical, const std::string& text = {}) {
  constexpr char kNull = 5, kText = 12;
  const std::string value = std::string{text.empty() ? kNull : kText, static_cast<char>(text.size())} + text;
  ASN1_OCTET_STRING* content = ::ASN1_OCTET_STRING_new();
  ::ASN1_OCTET_STRING_set(content, reinterpret_cast<const unsigned char*>(value.data()),
                          static_cast<int>(value.size()));
  ASN1_OBJECT* object = ::OBJ_txt2obj(identifier, 1);
  X509_EXTENSION* extension = ::X509_EXTENSION_create_by_OBJ(nullptr, object, critical ? 1 : 0, content);
  ::X509_add_ext(certificate, extension, -1);
  ::X509_EXTENSION_free(extension);
  ::ASN1_OBJECT_free(object);
  ::ASN1_OCTET_STRING_free(content);
}

struct Subject {
  std::string commonName;
  std::string unit;
  std::string organization;
  std::string userId;
};

Certificate makeCertificate(EVP_PKEY* key, const Subject& subject, X509* issuer, const IdentityPlan& plan) {
  Certificate certificate(require(::X509_new(), "make a certificate"));
  ::X509_set_version(certificate.get(), X509_VERSION_3);
  unsigned char serial[16];
  ::RAND_bytes(serial, sizeof serial);
  serial[0] &= 0x7f;
  BIGNUM* number = ::BN_bin2bn(serial, sizeof serial, nullptr);
  ::BN_to_ASN1_INTEGER(number, ::X509_get_serialNumber(certificate.get()));
  ::BN_free(number);
  const std::time_t now = std::time(nullptr);
  ::ASN1_TIME_set(::X509_getm_notBefore(certificate.get()), plan.notBefore != 0 ? plan.notBefore : now - kDay);
  ::ASN1_TIME_set(::X509_getm_notAfter(certificate.get()), plan.notAfter != 0 ? plan.notAfter : now + 3650 * kDay);
  X509_NAME* name = ::X509_get_subject_name(certificate.get());
  addName(name, "UID", subject.userId);
  addName(name, "CN", subject.commonName);
  addName(name, "OU", subject.unit);
  addName(name, "O", subject.organization);
  addName(name, "C", "US");
  ::X509_set_issuer_name(certificate.get(), ::X509_get_subject_name(issuer == nullptr ? certificate.get() : issuer));
  ::X509_set_pubkey(certificate.get(), key);
  addExtension(certificate.get(), certificate.get(), NID_subject_key_identifier, "hash");
  addExtension(certificate.get(), issuer == nullptr ? certificate.get() : issuer, NID_authority_key_identifier,
               "keyid");
  return certificate;
}

void addAuthority(X509* certificate) {
  addExtension(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
}

void finish(X509* certificate, EVP_PKEY* issuerKey, const std::string& digest = "SHA256") {
  require(::X509_sign(certificate, issuerKey, ::EVP_get_digestbyname(digest.c_str())), "sign a certificate");
}

Certificate makeLeaf(EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey, const IdentityPlan& plan) {
  const std::string name =
      plan.leafName.empty() ? "Developer ID Application: Tarvo (" + plan.team + ")" : plan.leafName;
  Certificate leaf = makeCertificate(key, {name, plan.team, plan.organization, plan.team}, issuer, plan);
  addExtension(leaf.get(), issuer, NID_key_usage,
               plan.digitalSignature ? "critical,digitalSignature" : "critical,keyEncipherment");
  addExtension(leaf.get(), issuer, NID_ext_key_usage,
               plan.codeSigningUsage ? "critical,codeSigning" : "critical,serverAuth");
  addMark(leaf.get(), "1.2.840.113635.100.6.1.13", true);
  if (!plan.issueDate.empty()) addMark(leaf.get(), "1.2.840.113635.100.6.1.33", false, plan.issueDate);
  if (plan.unknownCriticalExtension) addMark(leaf.get(), "1.3.6.1.4.1.99999.1", true);
  finish(leaf.get(), issuerKey, plan.certificateDigest);
  return leaf;
}

void addTimeStampAuthority(Identity& identity, X509* root, EVP_PKEY* rootKey, bool rsa) {
  identity.stampKey = makeKey(rsa);
  identity.stampCertificate =
      makeCertificate(identity.stampKey.get(), {"Timestamp Signer", "", "Apple Inc.", ""}, root, IdentityPlan());
  addExtension(identity.stampCertificate.get(), root, NID_key_usage, "critical,digitalSignature");
  addExtension(identity.stampCertificate.get(), root, NID_ext_key_usage, "critical,timeStamping");
  finish(identity.stampCertificate.get(), rootKey);
}

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

File openFile(const std::string& path, const char* mode) {
  return File(require(std::fopen(path.c_str(), mode), ("open " + path).c_str()));
}

void saveKey(EVP_PKEY* key, const std::string& path) {
  const File file = openFile(path, "wbe");
  ::fchmod(::fileno(file.get()), 0600);
  require(::PEM_write_PKCS8PrivateKey(file.get(), key, nullptr, nullptr, 0, nullptr, nullptr), "write a key");
}

void saveCertificates(const std::vector<X509*>& certificates, const std::string& path) {
  const File file = openFile(path, "wbe");
  for (X509* certificate : certificates) require(::PEM_write_X509(file.get(), certificate), "write a certificate");
}

Key loadKey(const std::string& path) {
  const File file = openFile(path, "rbe");
  return Key(
      require(::PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr), ("read a key from " + path).c_str()));
}

std::vector<Certificate> loadCertificates(const std::string& path) {
  const File file = openFile(path, "rbe");
  std::vector<Certificate> certificates;
  while (X509* certificate = ::PEM_read_X509(file.get(), nullptr, nullptr, nullptr))
    certificates.emplace_back(certificate);
  require(!certificates.empty(), ("find a certificate in " + path).c_str());
  return certificates;
}

}  // namespace

void KeyDeleter::operator()(EVP_PKEY* key) const { ::EVP_PKEY_free(key); }

Identity makeIdentity(const IdentityPlan& plan) {
  Identity identity;
  std::vector<Certificate> authorities;  // root first
  Key authorityKey = makeKey(plan.rsa);
  authorities.push_back(
      makeCertificate(authorityKey.get(), {plan.rootName, "Certification Authority", "Apple Inc.", ""}, nullptr, plan));
  addAuthority(authorities.back().get());
  finish(authorities.back().get(), authorityKey.get());

  addTimeStampAuthority(identity, authorities[0].get(), authorityKey.get(), plan.rsa);

  const int between = plan.withoutIntermediate ? 0 : plan.extraLevels + 1;
  for (int i = 0; i < between; ++i) {
    const bool last = i + 1 == between;
    const std::string name = last ? plan.intermediateName : "Authority " + std::to_string(i + 1);
    Key key = makeKey(plan.rsa);
    Certificate certificate =
        makeCertificate(key.get(), {name, "Certification Authority", "Apple Inc.", ""}, authorities.back().get(), plan);
    if (plan.intermediateIsAuthority) addAuthority(certificate.get());
    if (last) addMark(certificate.get(), "1.2.840.113635.100.6.2.6", false);
    finish(certificate.get(), authorityKey.get(), plan.certificateDigest);
    authorities.push_back(std::move(certificate));
    authorityKey = std::move(key);
  }

  identity.key = makeKey(plan.rsa);
  identity.chain.push_back(makeLeaf(identity.key.get(), authorities.back().get(), authorityKey.get(), plan));
  identity.authorityKey = std::move(authorityKey);
  while (!authorities.empty()) {
    identity.chain.push_back(std::move(authorities.back()));
    authorities.pop_back();
  }
  return identity;
}

Identity renewedIdentity(const Identity& identity) {
  require(identity.authorityKey.get(), "find the authority's key");
  IdentityPlan plan;
  plan.rsa = ::EVP_PKEY_get_base_id(identity.key.get()) == EVP_PKEY_RSA;
  Identity renewed;
  renewed.key = makeKey(plan.rsa);
  renewed.chain.push_back(makeLeaf(renewed.key.get(), identity.chain.at(1).get(), identity.authorityKey.get(), plan));
  for (std::size_t i = 1; i < identity.chain.size(); ++i) {
    ::X509_up_ref(identity.chain[i].get());
    renewed.chain.emplace_back(identity.chain[i].get());
  }
  return renewed;
}

void saveIdentity(const Identity& identity, const std::string& folder) {
  std::filesystem::create_directories(folder);
  saveKey(identity.key.get(), folder + "/key.pem");
  std::vector<X509*> chain;
  for (const Certificate& certificate : identity.chain) chain.push_back(certificate.get());
  saveCertificates(chain, folder + "/chain.pem");
  saveCertificates({chain.back()}, folder + "/root.pem");
  if (identity.stampKey == nullptr) return;
  saveKey(identity.stampKey.get(), folder + "/tsa-key.pem");
  saveCertificates({identity.stampCertificate.get()}, folder + "/tsa.pem");
}

Identity loadIdentity(const std::string& folder) {
  Identity identity = loadIdentity(folder + "/key.pem", folder + "/chain.pem");
  if (std::filesystem::exists(folder + "/tsa-key.pem")) {
    identity.stampKey = loadKey(folder + "/tsa-key.pem");
    identity.stampCertificate = std::move(loadCertificates(folder + "/tsa.pem").front());
  }
  return identity;
}

Identity loadIdentity(const std::string& keyFile, const std::string& chainFile) {
  Identity identity;
  identity.key = loadKey(keyFile);
  identity.chain = loadCertificates(chainFile);
  return identity;
}

Identity loadIdentityFromPkcs12(const std::string& file, const std::string& password) {
  const File source = openFile(file, "rbe");
  PKCS12* container = require(::d2i_PKCS12_fp(source.get(), nullptr), ("read " + file).c_str());
  EVP_PKEY* key = nullptr;
  X509* leaf = nullptr;
  STACK_OF(X509)* others = nullptr;
  const int parsed = ::PKCS12_parse(container, password.c_str(), &key, &leaf, &others);
  ::PKCS12_free(container);
  require(parsed, ("open " + file + ": wrong password?").c_str());
  Identity identity;
  identity.key.reset(key);
  identity.chain.emplace_back(require(leaf, "find the signer's certificate"));
  for (int i = 0; i < sk_X509_num(others); ++i) identity.chain.emplace_back(sk_X509_value(others, i));
  sk_X509_free(others);
  return identity;
}

std::string fingerprintOf(X509* certificate) {
  const codesign::ByteSource der(codesign::derOf(certificate));
  return hexadecimal(codesign::hashOf(der, codesign::HashType::sha256).bytes());
}

}  // namespace tks::signing

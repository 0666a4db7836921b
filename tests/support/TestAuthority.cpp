#include "tests/support/TestAuthority.h"

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <atomic>
#include <stdexcept>

namespace tks::test {
namespace {

constexpr std::time_t kDay = 24 * 60 * 60;

std::shared_ptr<EVP_PKEY> makeKey() { return {::EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"), ::EVP_PKEY_free}; }

void addExtension(X509* certificate, X509* issuer, int kind, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = ::X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str());
  if (extension == nullptr) throw std::runtime_error("cannot make an extension");
  ::X509_add_ext(certificate, extension, -1);
  ::X509_EXTENSION_free(extension);
}

struct Plan {
  std::string commonName;
  std::string alternativeName;
  bool isAuthority = false;
  std::time_t validFrom = 0;
  std::time_t validTo = 0;
};

/// `issuer`: null for an identity that vouches for itself.
ServerIdentity make(const Plan& plan, const ServerIdentity* issuer) {
  static std::atomic<long> serial = 1;
  ServerIdentity made{{::X509_new(), ::X509_free}, makeKey()};
  X509* certificate = made.certificate.get();
  ::X509_set_version(certificate, X509_VERSION_3);
  ::ASN1_INTEGER_set(::X509_get_serialNumber(certificate), serial++);
  ::ASN1_TIME_set(::X509_getm_notBefore(certificate), plan.validFrom);
  ::ASN1_TIME_set(::X509_getm_notAfter(certificate), plan.validTo);
  ::X509_NAME_add_entry_by_txt(::X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(plan.commonName.c_str()), -1, -1, 0);
  X509* vouching = issuer != nullptr ? issuer->certificate.get() : certificate;
  ::X509_set_issuer_name(certificate, ::X509_get_subject_name(vouching));
  ::X509_set_pubkey(certificate, made.key.get());
  addExtension(certificate, vouching, NID_basic_constraints, plan.isAuthority ? "critical,CA:TRUE" : "CA:FALSE");
  if (!plan.alternativeName.empty()) addExtension(certificate, vouching, NID_subject_alt_name, plan.alternativeName);
  EVP_PKEY* key = issuer != nullptr ? issuer->key.get() : made.key.get();
  if (::X509_sign(certificate, key, ::EVP_sha256()) == 0) throw std::runtime_error("cannot sign a certificate");
  return made;
}

}  // namespace

TestAuthority::TestAuthority(const std::string& name) {
  const std::time_t now = std::time(nullptr);
  authority_ = make({name, "", true, now - 900 * kDay, now + 900 * kDay}, nullptr);
}

ServerIdentity TestAuthority::issue(const std::string& name, std::time_t validFrom, std::time_t validTo) const {
  return make({"server", name, false, validFrom, validTo}, &authority_);
}

ServerIdentity TestAuthority::issue(const std::string& name) const {
  const std::time_t now = std::time(nullptr);
  return issue(name, now - kDay, now + kDay);
}

ServerIdentity TestAuthority::selfSigned(const std::string& name) {
  const std::time_t now = std::time(nullptr);
  return make({"server", name, false, now - kDay, now + kDay}, nullptr);
}

std::string TestAuthority::certificate() const {
  const std::unique_ptr<BIO, decltype(&::BIO_free)> text(::BIO_new(::BIO_s_mem()), ::BIO_free);
  ::PEM_write_bio_X509(text.get(), authority_.certificate.get());
  char* bytes = nullptr;
  const long length = ::BIO_get_mem_data(text.get(), &bytes);
  return {bytes, static_cast<std::size_t>(length)};
}

}  // namespace tks::test

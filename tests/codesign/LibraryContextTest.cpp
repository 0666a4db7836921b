#include "codesign/container/library_context.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/crypto.h>
#include <openssl/decoder.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "codesign/container/digest.h"
#include "codesign/trust/certificates.h"

// The part of OpenSSL that signatures are checked with.

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&::EVP_PKEY_free)>;
using Context = std::unique_ptr<OSSL_LIB_CTX, decltype(&::OSSL_LIB_CTX_free)>;

struct KeyKind {
  std::string name;
  std::function<EVP_PKEY*()> make;
  /// Functions such as Ed25519 have none beside them.
  const EVP_MD* digest;
};

EVP_PKEY* makeRsaPss() {
  const std::unique_ptr<EVP_PKEY_CTX, decltype(&::EVP_PKEY_CTX_free)> making(
      ::EVP_PKEY_CTX_new_from_name(nullptr, "RSA-PSS", nullptr), ::EVP_PKEY_CTX_free);
  EVP_PKEY* made = nullptr;
  if (::EVP_PKEY_keygen_init(making.get()) == 1) ::EVP_PKEY_generate(making.get(), &made);
  return made;
}

/// A certificate that its own key signed, as made with all that OpenSSL has.
TKSData certificateOf(EVP_PKEY* key, const EVP_MD* digest) {
  const tks::codesign::Certificate made(::X509_new());
  ::X509_set_version(made.get(), X509_VERSION_3);
  ::ASN1_INTEGER_set(::X509_get_serialNumber(made.get()), 1);
  ::X509_gmtime_adj(::X509_getm_notBefore(made.get()), 0);
  ::X509_gmtime_adj(::X509_getm_notAfter(made.get()), 3600);
  EXPECT_EQ(::X509_set_pubkey(made.get(), key), 1);
  EXPECT_GT(::X509_sign(made.get(), key, digest), 0);
  return tks::codesign::derOf(made.get());
}

class KeysOfCertificates : public ::testing::TestWithParam<KeyKind> {};

TEST_P(KeysOfCertificates, AreReadAndVerifyWhatTheySigned) {
  const Key key(GetParam().make(), ::EVP_PKEY_free);
  ASSERT_NE(key, nullptr);
  TKSData der = certificateOf(key.get(), GetParam().digest);
  const tks::codesign::Certificate read = tks::codesign::parseCertificate(der);
  ASSERT_NE(read, nullptr);
  EVP_PKEY* const own = ::X509_get0_pubkey(read.get());
  ASSERT_NE(own, nullptr);
  EXPECT_EQ(::X509_verify(read.get(), own), 1);
  der.back() ^= 1;
  const tks::codesign::Certificate changed = tks::codesign::parseCertificate(der);
  ASSERT_NE(changed, nullptr);
  EXPECT_NE(::X509_verify(changed.get(), own), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, KeysOfCertificates,
    ::testing::Values(
        KeyKind{"Rsa", [] { return ::EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", std::size_t{2048}); }, ::EVP_sha256()},
        KeyKind{"RsaPss", makeRsaPss, ::EVP_sha256()},
        KeyKind{"P256", [] { return ::EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"); }, ::EVP_sha256()},
        KeyKind{"P521", [] { return ::EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-521"); }, ::EVP_sha512()},
        KeyKind{"Ed25519", [] { return ::EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"); }, nullptr},
        KeyKind{"Ed448", [] { return ::EVP_PKEY_Q_keygen(nullptr, nullptr, "ED448"); }, nullptr}),
    [](const auto& kind) { return kind.param.name; });

std::size_t decodersIn(OSSL_LIB_CTX* context) {
  std::size_t count = 0;
  ::OSSL_DECODER_do_all_provided(
      context, [](OSSL_DECODER*, void* counter) { ++*static_cast<std::size_t*>(counter); }, &count);
  return count;
}

TEST(LibraryContext, HasNoDecodersButThoseOfKeysOfCertificates) {
  const Context all(::OSSL_LIB_CTX_new(), ::OSSL_LIB_CTX_free);
  const std::size_t own = decodersIn(tks::codesign::Cryptography::shared().context());
  EXPECT_GT(own, 0u);
  EXPECT_LT(own, decodersIn(all.get()) / 3);
}

TEST(LibraryContext, HasTheOtherFunctionsOfTheDefaultProvider) {
  OSSL_LIB_CTX* const own = tks::codesign::Cryptography::shared().context();
  for (const char* const name : {"SHA1", "SHA2-256", "SHA2-384", "SHA2-512", "MD5"}) {
    const std::unique_ptr<EVP_MD, decltype(&::EVP_MD_free)> function(::EVP_MD_fetch(own, name, nullptr), ::EVP_MD_free);
    EXPECT_NE(function, nullptr) << name;
  }
}

}  // namespace

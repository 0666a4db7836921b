#include "codesign/trust/certificates.h"

#include <openssl/asn1.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "codesign/container/digest.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kLongestChain = 16;

template <auto Free>
struct Freer {
  template <class Object>
  void operator()(Object* object) const {
    Free(object);
  }
};
template <class Object, auto Free>
using Owned = std::unique_ptr<Object, Freer<Free>>;

constexpr std::array<std::uint8_t, 32> digestFrom(std::string_view hexadecimal) {
  std::array<std::uint8_t, 32> digest{};
  const auto digit = [](char character) { return character <= '9' ? character - '0' : character - 'a' + 10; };
  for (std::size_t i = 0; i < digest.size(); ++i) {
    digest[i] = static_cast<std::uint8_t>(digit(hexadecimal[2 * i]) << 4 | digit(hexadecimal[2 * i + 1]));
  }
  return digest;
}

/// Memory that OpenSSL gave. OPENSSL_free would put the path of this file into the library.
void release(void* memory) { ::CRYPTO_free(memory, "", 0); }

std::string utf8(const ASN1_STRING* text) {
  unsigned char* converted = nullptr;
  const int length = ::ASN1_STRING_to_UTF8(&converted, text);
  if (length < 0) return {};
  std::string result(reinterpret_cast<const char*>(converted), static_cast<std::size_t>(length));
  release(converted);
  return result;
}

/// The most specific common name of a subject or issuer.
std::optional<std::string> commonNameIn(const X509_NAME* name) {
  int last = -1;
  for (int at = -1; (at = ::X509_NAME_get_index_by_NID(name, NID_commonName, at)) >= 0;) last = at;
  if (last < 0) return std::nullopt;
  return utf8(::X509_NAME_ENTRY_get_data(::X509_NAME_get_entry(name, last)));
}

Owned<ASN1_OBJECT, ::ASN1_OBJECT_free> objectFor(const std::string& identifier) {
  return Owned<ASN1_OBJECT, ::ASN1_OBJECT_free>(::OBJ_txt2obj(identifier.c_str(), 1));
}

/// Arcs whose extensions the platform knows although OpenSSL does not.
constexpr std::string_view kKnownArcs[] = {"1.2.840.113635.100.6.", "1.2.840.113635.100.11.", "1.2.840.113635.100.12.",
                                           "1.2.840.113635.100.13.", "1.2.840.113635.100.15."};

bool isKnownExtension(X509_EXTENSION* extension) {
  char identifier[128] = {};
  if (::OBJ_obj2txt(identifier, sizeof identifier, ::X509_EXTENSION_get_object(extension), 1) <= 0) return false;
  return std::ranges::any_of(kKnownArcs,
                             [&](std::string_view arc) { return std::string_view(identifier).starts_with(arc); });
}

bool hasUnknownCriticalExtension(X509* certificate) {
  for (int i = 0; i < ::X509_get_ext_count(certificate); ++i) {
    X509_EXTENSION* extension = ::X509_get_ext(certificate, i);
    if (::X509_EXTENSION_get_critical(extension) != 0 && ::X509_supported_extension(extension) == 0 &&
        !isKnownExtension(extension)) {
      return true;
    }
  }
  return false;
}

int onVerification(int good, X509_STORE_CTX* context) {
  if (good == 1 || ::X509_STORE_CTX_get_error(context) != X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION) return good;
  if (hasUnknownCriticalExtension(::X509_STORE_CTX_get_current_cert(context))) return 0;
  ::X509_STORE_CTX_set_error(context, X509_V_OK);
  return 1;
}

/// How well a certificate fits as the issuer of another one; negative when it does not.
int fitness(X509* issuer, X509* certificate) {
  if (::X509_check_issued(issuer, certificate) != X509_V_OK) return -1;
  const ASN1_OCTET_STRING* wanted = ::X509_get0_authority_key_id(certificate);
  const ASN1_OCTET_STRING* own = ::X509_get0_subject_key_id(issuer);
  const bool sameKey = wanted != nullptr && own != nullptr && ::ASN1_OCTET_STRING_cmp(wanted, own) == 0;
  return (sameKey ? 2 : 0) + (isSelfSigned(issuer) ? 1 : 0);
}

bool hasSigned(X509* issuer, X509* certificate) {
  EVP_PKEY* key = ::X509_get0_pubkey(issuer);
  return key != nullptr && ::X509_verify(certificate, key) == 1;
}

X509* findIssuer(X509* certificate, const std::vector<X509*>& carried, const Chain& chain) {
  std::vector<std::pair<int, X509*>> candidates;
  for (X509* other : carried) {
    if (std::ranges::find(chain, other) != chain.end()) continue;
    if (const int fit = fitness(other, certificate); fit >= 0) candidates.emplace_back(fit, other);
  }
  std::ranges::stable_sort(candidates, std::ranges::greater(), &std::pair<int, X509*>::first);
  if (candidates.empty()) return nullptr;
  if (candidates.size() == 1) return candidates.front().second;
  // Several issuers share the name: take the one whose key verifies. With one candidate verifyChain checks it anyway.
  for (const auto& [fit, candidate] : candidates) {
    if (hasSigned(candidate, certificate)) return candidate;
  }
  return candidates.front().second;
}

/// Certificates between leaf and anchor must say that they are authorities.
bool areAuthorities(const Chain& chain) {
  constexpr std::uint32_t kOldSelfSignedRoot = 3;
  for (std::size_t i = 1; i < chain.size(); ++i) {
    const auto kind = static_cast<std::uint32_t>(::X509_check_ca(chain[i]));
    if (kind != 1 && (i + 1 < chain.size() || kind != kOldSelfSignedRoot)) return false;
  }
  return true;
}

/// What signs a certificate has to sign over a digest that nobody can forge. The anchor vouches for itself anyway.
bool areSignedSoundly(const Chain& chain) {
  return std::all_of(chain.begin(), chain.end() - 1, [](X509* certificate) {
    int function = NID_undef;
    // Algorithms without a digest of their own, such as Ed25519, are told as undefined.
    return ::X509_get_signature_info(certificate, &function, nullptr, nullptr, nullptr) == 1 &&
           (function == NID_undef || isSoundDigest(function));
  });
}

}  // namespace

void CertificateDeleter::operator()(X509* certificate) const { ::X509_free(certificate); }

bool AppleRoots::contains(X509* certificate) const {
  std::array<std::uint8_t, 32> digest{};
  unsigned size = 0;
  if (::X509_digest(certificate, Cryptography::shared().function(HashType::sha256), digest.data(), &size) != 1) {
    return false;
  }
  return std::ranges::find(digests, digest) != digests.end();
}

const AppleRoots& AppleRoots::builtIn() {
  static const AppleRoots roots{{digestFrom("b0b1730ecbc7ff4505142c49f1295e6eda6bcaed7e2c68c5be91b5a11001f024"),
                                 digestFrom("c2b9b042dd57830e7d117dac55ac8ae19407d38e41d88f3215bc3a890444a050"),
                                 digestFrom("63343abfb89a6a03ebb57e9b3f5fa7be7c4f5c756f3017b3a8c488c3653e9179")}};
  return roots;
}

Certificate parseCertificate(Bytes der) {
  const ErrorQueueGuard guard;
  X509* parsed = ::X509_new_ex(Cryptography::shared().context(), nullptr);
  const unsigned char* at = der.data();
  if (parsed != nullptr && ::d2i_X509(&parsed, &at, static_cast<long>(der.size())) == nullptr) parsed = nullptr;
  return Certificate(parsed);
}

TKSData derOf(X509* certificate) {
  unsigned char* encoded = nullptr;
  const int length = ::i2d_X509(certificate, &encoded);
  if (length < 0) fail(status::kInternalError);
  TKSData der(encoded, encoded + length);
  release(encoded);
  return der;
}

std::optional<std::string> commonNameOf(X509* certificate) {
  return commonNameIn(::X509_get_subject_name(certificate));
}

std::optional<std::string> issuerNameOf(X509* certificate) { return commonNameIn(::X509_get_issuer_name(certificate)); }

std::optional<std::string> organizationalUnitOf(X509* certificate) {
  const X509_NAME* subject = ::X509_get_subject_name(certificate);
  const int first = ::X509_NAME_get_index_by_NID(subject, NID_organizationalUnitName, -1);
  if (first < 0) return std::nullopt;
  return utf8(::X509_NAME_ENTRY_get_data(::X509_NAME_get_entry(subject, first)));
}

std::vector<std::string> subjectFields(X509* certificate, const std::string& identifier) {
  std::vector<std::string> found;
  const auto object = objectFor(identifier);
  if (object == nullptr) return found;
  const X509_NAME* subject = ::X509_get_subject_name(certificate);
  for (int at = -1; (at = ::X509_NAME_get_index_by_OBJ(subject, object.get(), at)) >= 0;) {
    found.push_back(utf8(::X509_NAME_ENTRY_get_data(::X509_NAME_get_entry(subject, at))));
  }
  return found;
}

bool hasExtension(X509* certificate, const std::string& identifier) {
  const auto object = objectFor(identifier);
  return object != nullptr && ::X509_get_ext_by_OBJ(certificate, object.get(), -1) >= 0;
}

std::optional<TKSData> extensionOf(X509* certificate, const std::string& identifier) {
  const auto object = objectFor(identifier);
  const int at = object == nullptr ? -1 : ::X509_get_ext_by_OBJ(certificate, object.get(), -1);
  if (at < 0) return std::nullopt;
  const ASN1_OCTET_STRING* data = ::X509_EXTENSION_get_data(::X509_get_ext(certificate, at));
  const unsigned char* start = ::ASN1_STRING_get0_data(data);
  return TKSData(start, start + ::ASN1_STRING_length(data));
}

bool isSelfSigned(X509* certificate) { return ::X509_self_signed(certificate, 0) == 1; }

bool isValidAt(X509* certificate, std::time_t moment) {
  // The last second counts; the comparison takes equal times for earlier ones.
  std::time_t before = moment - 1;
  return ::X509_cmp_time(::X509_get0_notBefore(certificate), &moment) < 0 &&
         ::X509_cmp_time(::X509_get0_notAfter(certificate), &before) > 0;
}

bool hasUsage(X509* certificate, int usage) {
  const Owned<EXTENDED_KEY_USAGE, ::EXTENDED_KEY_USAGE_free> usages(
      static_cast<EXTENDED_KEY_USAGE*>(::X509_get_ext_d2i(certificate, NID_ext_key_usage, nullptr, nullptr)));
  for (int i = 0; usages != nullptr && i < sk_ASN1_OBJECT_num(usages.get()); ++i) {
    if (::OBJ_obj2nid(sk_ASN1_OBJECT_value(usages.get(), i)) == usage) return true;
  }
  return false;
}

bool maySign(X509* certificate) {
  // All bits are set when the certificate does not restrict its key.
  return (::X509_get_key_usage(certificate) & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) != 0;
}

Chain buildChain(X509* leaf, const std::vector<X509*>& carried) {
  Chain chain{leaf};
  while (!isSelfSigned(chain.back()) && chain.size() < kLongestChain) {
    X509* issuer = findIssuer(chain.back(), carried, chain);
    if (issuer == nullptr) break;
    chain.push_back(issuer);
  }
  return chain;
}

Status verifyChain(const Chain& chain) {
  X509* root = chain.back();
  if (!isSelfSigned(root)) return status::kNotTrusted;
  const Owned<X509_STORE, ::X509_STORE_free> store(::X509_STORE_new());
  const Owned<X509_STORE_CTX, ::X509_STORE_CTX_free> context(
      ::X509_STORE_CTX_new_ex(Cryptography::shared().context(), nullptr));
  const Owned<STACK_OF(X509), [](STACK_OF(X509) * stack) { sk_X509_free(stack); }> between(sk_X509_new_null());
  if (store == nullptr || context == nullptr || between == nullptr) fail(status::kNotEnoughMemory);
  for (std::size_t i = 1; i + 1 < chain.size(); ++i) sk_X509_push(between.get(), chain[i]);
  if (::X509_STORE_add_cert(store.get(), root) != 1 ||
      ::X509_STORE_CTX_init(context.get(), store.get(), chain.front(), between.get()) != 1) {
    fail(status::kNotEnoughMemory);
  }
  ::X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_NO_CHECK_TIME | X509_V_FLAG_CHECK_SS_SIGNATURE);
  ::X509_STORE_CTX_set_verify_cb(context.get(), onVerification);
  if (::X509_verify_cert(context.get()) != 1) {
    return ::X509_STORE_CTX_get_error(context.get()) == X509_V_ERR_UNHANDLED_CRITICAL_EXTENSION
               ? status::kUnknownCriticalExtension
               : status::kNotTrusted;
  }
  return areAuthorities(chain) && areSignedSoundly(chain) ? status::kGood : status::kNotTrusted;
}

bool isSameMaker(const Chain& one, const Chain& other) {
  if (::X509_cmp(one.front(), other.front()) == 0) return true;
  const std::optional<std::string> unit = organizationalUnitOf(one.front());
  return unit && unit == organizationalUnitOf(other.front()) && ::X509_cmp(one.back(), other.back()) == 0;
}

bool isSoundDigest(int function) {
  constexpr int kSound[] = {NID_sha1, NID_sha224, NID_sha256, NID_sha384, NID_sha512};
  return std::ranges::find(kSound, function) != std::end(kSound);
}

bool isDeveloperChain(const Chain& chain, const AppleRoots& roots) {
  if (chain.empty() || !roots.contains(chain.back())) return false;
  constexpr const char* kLeafMarks[] = {"1.2.840.113635.100.6.1.2", "1.2.840.113635.100.6.1.12",
                                        "1.2.840.113635.100.6.1.7", "1.2.840.113635.100.6.1.4"};
  if (std::ranges::any_of(kLeafMarks, [&](const char* mark) { return hasExtension(chain.front(), mark); })) return true;
  return chain.size() > 1 && hasExtension(chain.front(), "1.2.840.113635.100.6.1.13") &&
         hasExtension(chain[1], "1.2.840.113635.100.6.2.6");
}

}  // namespace tks::codesign

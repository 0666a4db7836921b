#include "codesign/trust/certificate_facts.h"

#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "codesign/container/digest.h"

namespace tks::codesign {
namespace {

struct SubjectField {
  std::string_view key;
  const char* identifier;
};
constexpr SubjectField kSubjectFields[] = {
    {"subject.C", "2.5.4.6"},          {"subject.CN", "2.5.4.3"},
    {"subject.D", "2.5.4.13"},         {"subject.L", "2.5.4.7"},
    {"subject.O", "2.5.4.10"},         {"subject.OU", "2.5.4.11"},
    {"subject.STREET", "2.5.4.9"},     {"subject.UID", "0.9.2342.19200300.100.1.1"},
    {"email", "1.2.840.113549.1.9.1"},
};

}  // namespace

X509* certificateAt(const Chain& chain, std::int32_t slot) {
  const auto size = static_cast<std::int32_t>(chain.size());
  const std::int32_t index = slot < 0 ? size + slot : slot;
  return index >= 0 && index < size ? chain[static_cast<std::size_t>(index)] : nullptr;
}

TKSValue subjectField(X509* certificate, std::string_view key) {
  for (const SubjectField& field : kSubjectFields) {
    if (field.key != key) continue;
    const std::vector<std::string> values = subjectFields(certificate, field.identifier);
    return values.empty() ? TKSValue() : TKSValue(values.front());
  }
  return {};
}

TKSValue extensionValue(X509* certificate, std::string_view identifier) {
  const std::optional<TKSData> der = extensionOf(certificate, decodeIdentifier(identifier));
  if (!der) return {};
  const unsigned char* at = der->data();
  ASN1_STRING* text = ::d2i_DIRECTORYSTRING(nullptr, &at, static_cast<long>(der->size()));
  if (text == nullptr) return *der;
  TKSValue value = std::string_view(reinterpret_cast<const char*>(::ASN1_STRING_get0_data(text)),
                                    static_cast<std::size_t>(::ASN1_STRING_length(text)));
  ::ASN1_STRING_free(text);
  return value;
}

bool hasPolicy(X509* certificate, std::string_view identifier) {
  auto* policies =
      static_cast<CERTIFICATEPOLICIES*>(::X509_get_ext_d2i(certificate, NID_certificate_policies, nullptr, nullptr));
  bool found = false;
  for (int i = 0; i < sk_POLICYINFO_num(policies); ++i) {
    const ASN1_OBJECT* policy = sk_POLICYINFO_value(policies, i)->policyid;
    found |=
        identifier == std::string_view(reinterpret_cast<const char*>(::OBJ_get0_data(policy)), ::OBJ_length(policy));
  }
  ::CERTIFICATEPOLICIES_free(policies);
  return found;
}

std::string hashOfCertificate(X509* certificate) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  if (::X509_digest(certificate, Cryptography::shared().function(HashType::sha1), digest.data(), &size) != 1) return {};
  return {reinterpret_cast<const char*>(digest.data()), size};
}

bool isSignedByApple(const Chain& chain, const AppleRoots* roots) {
  X509* authority = certificateAt(chain, -2);
  return authority != nullptr && roots->contains(chain.back()) &&
         subjectField(authority, "subject.CN") == TKSValue("Apple Code Signing Certification Authority") &&
         subjectField(authority, "subject.O") == TKSValue("Apple Inc.");
}

std::string encodeIdentifier(std::string_view dotted) {
  ASN1_OBJECT* object = ::OBJ_txt2obj(std::string(dotted).c_str(), 1);
  if (object == nullptr) return {};
  std::string encoded(reinterpret_cast<const char*>(::OBJ_get0_data(object)), ::OBJ_length(object));
  ::ASN1_OBJECT_free(object);
  return encoded;
}

std::string decodeIdentifier(std::string_view encoded) {
  std::string text;
  std::uint64_t number = 0;
  bool first = true;
  for (const char character : encoded) {
    const auto byte = static_cast<unsigned char>(character);
    if (number > (UINT64_MAX >> 7)) return {};
    number = number << 7 | (byte & 0x7F);
    if ((byte & 0x80) != 0) continue;
    if (first) {
      const std::uint64_t arc = std::min<std::uint64_t>(number / 40, 2);
      text = std::to_string(arc);
      number -= arc * 40;
      first = false;
    }
    text.append(".").append(std::to_string(number));
    number = 0;
  }
  return text;
}

}  // namespace tks::codesign

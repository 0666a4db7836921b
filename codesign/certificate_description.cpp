#include <openssl/asn1.h>
#include <openssl/x509.h>

#include <ctime>

#include "codesign/Codesign.h"
#include "codesign/container/digest.h"
#include "codesign/trust/certificates.h"
#include "foundation/values/Hexadecimal.h"

namespace tks::codesign {
namespace {

constexpr const char* kOrganization = "2.5.4.10";

std::time_t momentOf(const ASN1_TIME* time) {
  std::tm parts{};
  return ::ASN1_TIME_to_tm(time, &parts) == 1 ? ::timegm(&parts) : 0;
}

std::string serialNumberOf(X509* certificate) {
  const ASN1_INTEGER* number = ::X509_get0_serialNumber(certificate);
  const unsigned char* bytes = ::ASN1_STRING_get0_data(number);
  return hexadecimal({bytes, static_cast<std::size_t>(::ASN1_STRING_length(number))});
}

std::string firstOf(const std::vector<std::string>& values) { return values.empty() ? std::string() : values.front(); }

}  // namespace

std::optional<CertificateDescription> describeCertificate(const TKSData& der) {
  const ErrorQueueGuard guard;
  const Certificate certificate = parseCertificate(der);
  if (certificate == nullptr) return std::nullopt;
  CertificateDescription description;
  description.commonName = commonNameOf(certificate.get()).value_or("");
  description.organization = firstOf(subjectFields(certificate.get(), kOrganization));
  description.organizationalUnit = organizationalUnitOf(certificate.get()).value_or("");
  description.issuer = issuerNameOf(certificate.get()).value_or("");
  description.serialNumber = serialNumberOf(certificate.get());
  description.notBefore = momentOf(::X509_get0_notBefore(certificate.get()));
  description.notAfter = momentOf(::X509_get0_notAfter(certificate.get()));
  description.sha256 = hexadecimal(hashOf(ByteSource(der), HashType::sha256).bytes());
  description.isSelfSigned = isSelfSigned(certificate.get());
  description.der = der;
  return description;
}

}  // namespace tks::codesign

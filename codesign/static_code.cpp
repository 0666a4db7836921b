#include "codesign/static_code.h"

#include <algorithm>
#include <string>
#include <utility>

#include "codesign/Codesign.h"
#include "codesign/container/digest.h"
#include "codesign/outcome.h"
#include "platform/backend.h"

namespace tks::codesign {
namespace {

class LinuxStaticCode final : public platform::StaticCode {
 public:
  explicit LinuxStaticCode(Code code) : code_(std::move(code)) {}

  std::int32_t checkValidity(std::string& details) override { return judge(code_.verify(Depth::plain), details); }
  std::int32_t checkForInstalling(std::string& details) override { return judge(code_.verify(Depth::strict), details); }
  /// The strict check does what the plain one does, and more: of code that passes it the plain one says nothing else.
  InstallingVerdict checkBeforeInstalling() override {
    InstallingVerdict verdict;
    const Outcome strict = code_.verify(Depth::strict);
    if (strict.isGood()) return verdict;
    verdict.plain = checkValidity(verdict.details);
    if (verdict.plain == 0) verdict.inDepth = judge(strict, verdict.details);
    return verdict;
  }

  std::int32_t checkOneSigner(std::string& details) override { return judge(code_.verifyOneSigner(), details); }

  std::int32_t copySigningInformation(TKSDictionary& information) override {
    return code_.copyInformation(information).status;
  }

 private:
  static std::int32_t judge(const Outcome& outcome, std::string& details) {
    if (!outcome.isGood()) details = outcome.description();
    return outcome.status;
  }

  const Code code_;
};

class LinuxSignatures final : public platform::Signatures {
 public:
  explicit LinuxSignatures(AppleRoots roots) : roots_(std::move(roots)) {}

  std::int32_t create(std::string_view path, std::unique_ptr<platform::StaticCode>& code) override {
    Outcome outcome;
    std::optional<Code> opened = Code::open(path, &outcome, &roots_);
    if (opened) code = std::make_unique<LinuxStaticCode>(*std::move(opened));
    return outcome.status;
  }

  std::int32_t commonName(const TKSData& certificate, std::string& name) override {
    return readName(certificate, name, commonNameOf);
  }

  std::int32_t organizationalUnit(const TKSData& certificate, std::string& unit) override {
    return readName(certificate, unit, organizationalUnitOf);
  }

  bool leadsToRoot(const TKSArray& chain, std::string_view rootSHA256) override {
    bool leads = false;
    return attempt([&] { leads = leadsTo(chain, rootSHA256); }).isGood() && leads;
  }

 private:
  static std::int32_t readName(const TKSData& der, std::string& name, std::optional<std::string> (*read)(X509*)) {
    return attempt([&] {
             const ErrorQueueGuard guard;
             const Certificate certificate = parseCertificate(der);
             if (certificate == nullptr) fail(status::kBadParameter);
             std::optional<std::string> found = read(certificate.get());
             if (!found) fail(status::kInternalError);
             name = *std::move(found);
           })
        .status;
  }

  static bool leadsTo(const TKSArray& ders, std::string_view rootSHA256) {
    const ErrorQueueGuard guard;
    std::vector<Certificate> certificates;
    for (const TKSValue& der : ders) {
      certificates.push_back(parseCertificate(der.data()));
      if (certificates.back() == nullptr) return false;
    }
    if (certificates.empty()) return false;
    Chain chain;
    for (const Certificate& certificate : certificates) chain.push_back(certificate.get());
    const Digest root = hashOf(ByteSource(ders[ders.size() - 1].data()), HashType::sha256);
    return isSameDigits(hexadecimal(root.bytes()), rootSHA256) && verifyChain(chain) == status::kGood;
  }

  /// Hexadecimal digits may be given in either case.
  static bool isSameDigits(std::string_view lower, std::string_view given) {
    const auto isSame = [](char own, char other) {
      return own == (other >= 'A' && other <= 'F' ? static_cast<char>(other + ('a' - 'A')) : other);
    };
    return std::ranges::equal(lower, given, isSame);
  }

  const AppleRoots roots_;
};

}  // namespace

std::unique_ptr<platform::Signatures> makeSignatures(AppleRoots roots) {
  return std::make_unique<LinuxSignatures>(std::move(roots));
}

}  // namespace tks::codesign

namespace tks::platform {

template <>
Signatures& backend<Signatures>() {
  static auto& signatures = *codesign::makeSignatures(codesign::AppleRoots::builtIn()).release();
  return signatures;
}

}  // namespace tks::platform

#include "codesign/static_code.h"

#include <new>
#include <string>
#include <utility>

#include "codesign/container/code_layout.h"
#include "codesign/container/digest.h"
#include "codesign/container/status.h"
#include "codesign/signing_information.h"
#include "codesign/validity.h"
#include "platform/backend.h"

namespace tks::codesign {
namespace {

/// The one place where what was thrown becomes a status.
template <class Work>
std::int32_t statusOf(Work work) {
  try {
    return work();
  } catch (const Failure& failure) {
    return failure.status;
  } catch (const std::bad_alloc&) {
    return status::kNotEnoughMemory;
  } catch (...) {
    return status::kInternalError;
  }
}

class LinuxStaticCode final : public platform::StaticCode {
 public:
  LinuxStaticCode(CodeLayout layout, const AppleRoots& roots) : layout_(std::move(layout)), roots_(roots) {}

  std::int32_t checkValidity(std::string& details) override { return check(Depth::plain, details); }
  std::int32_t checkForInstalling(std::string& details) override { return check(Depth::strict, details); }

  std::int32_t copySigningInformation(TKSDictionary& information) override {
    return statusOf([&] {
      information = signingInformation(layout_, roots_);
      return status::kGood;
    });
  }

 private:
  std::int32_t check(Depth depth, std::string& details) {
    Validity validity;
    validity.status = statusOf([&] {
      validity = codesign::checkValidity(layout_, roots_, depth);
      return validity.status;
    });
    if (validity.status != status::kGood) details = validity.description();
    return validity.status;
  }

  const CodeLayout layout_;
  const AppleRoots& roots_;
};

class LinuxSignatures final : public platform::Signatures {
 public:
  explicit LinuxSignatures(AppleRoots roots) : roots_(std::move(roots)) {}

  std::int32_t create(std::string_view path, std::unique_ptr<platform::StaticCode>& code) override {
    return statusOf([&] {
      code = std::make_unique<LinuxStaticCode>(findCode(std::string(path)), roots_);
      return status::kGood;
    });
  }

  std::int32_t commonName(const TKSData& certificate, std::string& name) override {
    return readName(certificate, name, commonNameOf);
  }

  std::int32_t organizationalUnit(const TKSData& certificate, std::string& unit) override {
    return readName(certificate, unit, organizationalUnitOf);
  }

  bool leadsToRoot(const TKSArray& chain, std::string_view rootSHA256) override {
    bool leads = false;
    statusOf([&] {
      leads = leadsTo(chain, rootSHA256);
      return status::kGood;
    });
    return leads;
  }

 private:
  static std::int32_t readName(const TKSData& der, std::string& name, std::optional<std::string> (*read)(X509*)) {
    return statusOf([&] {
      const ErrorQueueGuard guard;
      const Certificate certificate = parseCertificate(der);
      if (certificate == nullptr) return status::kBadParameter;
      std::optional<std::string> found = read(certificate.get());
      if (!found) return status::kInternalError;
      name = *std::move(found);
      return status::kGood;
    });
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
    return isHexadecimal(hashOf(ByteSource(ders[ders.size() - 1].data()), HashType::sha256).bytes(), rootSHA256) &&
           verifyChain(chain) == status::kGood;
  }

  static bool isHexadecimal(Bytes bytes, std::string_view text) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string expected;
    for (const std::uint8_t byte : bytes) {
      expected += kDigits[byte >> 4];
      expected += kDigits[byte & 15];
    }
    std::string lower(text);
    for (char& character : lower) {
      if (character >= 'A' && character <= 'F') character = static_cast<char>(character + ('a' - 'A'));
    }
    return lower == expected;
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

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"

namespace tks::test {

/// Signatures that answer what a test says, and note what was asked.
class FakeSignatures final : public tks::platform::Signatures {
 public:
  std::int32_t createStatus = 0;
  std::int32_t validity = 0;
  std::string details;
  std::int32_t installValidity = 0;
  std::int32_t oneSigner = 0;
  std::int32_t informationStatus = 0;
  TKSDictionary information;
  /// Status of commonName for a certificate; good when absent. A certificate's bytes are its name.
  std::map<std::string, std::int32_t> nameStatuses;
  std::string unit = "T4RV0K0VRA";
  std::int32_t unitStatus = 0;
  bool leads = true;

  std::vector<std::string> asked;
  std::vector<std::string> paths;
  std::string askedRoot;

  /// The information of a bundle that a team signed with a chain of certificates, leaf first.
  void signedBy(std::string_view team, const std::vector<std::string>& names) {
    information.set("identifier", "com.tarvo.launcher");
    information.set("teamid", team);
    TKSArray chain;
    for (const std::string& name : names) chain.append(TKSValue(TKSData(name.begin(), name.end())));
    information.set("certificates", chain);
  }

  std::int32_t create(std::string_view path, std::unique_ptr<tks::platform::StaticCode>& code) override {
    asked.emplace_back("create");
    paths.emplace_back(path);
    if (createStatus == 0) code = std::make_unique<Code>(*this);
    return createStatus;
  }
  std::int32_t commonName(const TKSData& certificate, std::string& name) override {
    asked.emplace_back("name");
    const std::string text(certificate.begin(), certificate.end());
    if (const auto status = nameStatuses.find(text); status != nameStatuses.end()) return status->second;
    name = text;
    return 0;
  }
  std::int32_t organizationalUnit(const TKSData&, std::string& answer) override {
    asked.emplace_back("unit");
    answer = unit;
    return unitStatus;
  }
  bool leadsToRoot(const TKSArray&, std::string_view rootSHA256) override {
    asked.emplace_back("root");
    askedRoot = rootSHA256;
    return leads;
  }

 private:
  class Code final : public tks::platform::StaticCode {
   public:
    explicit Code(FakeSignatures& owner) : owner_(owner) {}
    std::int32_t checkValidity(std::string& answer) override {
      owner_.asked.emplace_back("validity");
      answer = owner_.details;
      return owner_.validity;
    }
    std::int32_t checkForInstalling(std::string& answer) override {
      owner_.asked.emplace_back("installing");
      answer = owner_.details;
      return owner_.installValidity;
    }
    std::int32_t checkOneSigner(std::string& answer) override {
      owner_.asked.emplace_back("one signer");
      answer = owner_.details;
      return owner_.oneSigner;
    }
    std::int32_t copySigningInformation(TKSDictionary& answer) override {
      owner_.asked.emplace_back("information");
      answer = owner_.information;
      return owner_.informationStatus;
    }

   private:
    FakeSignatures& owner_;
  };
};

}  // namespace tks::test

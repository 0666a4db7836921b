#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace tks::test {

// The doubles of signatures.

/// Signatures that answer what a test says, and note what was asked.
class FakeSignatures final : public platform::Signatures {
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

  std::int32_t create(std::string_view path, std::unique_ptr<platform::StaticCode>& code) override {
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
  class Code final : public platform::StaticCode {
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

/// The signatures that are in force, and what is asked of them, for a scope.
class WatchedSignatures final : public platform::Signatures {
 public:
  explicit WatchedSignatures(std::function<void()> then = nullptr) : sequel(std::move(then)) {}

  /// What was opened, in order.
  std::vector<std::string> paths;
  /// How often code was checked for installing.
  int checks = 0;
  /// Done once, after the first check for installing.
  std::function<void()> sequel;

  std::int32_t create(std::string_view path, std::unique_ptr<platform::StaticCode>& code) override {
    paths.emplace_back(path);
    std::unique_ptr<platform::StaticCode> real;
    const std::int32_t status = replaced_.before().create(path, real);
    if (status == 0) code = std::make_unique<Code>(std::move(real), *this);
    return status;
  }
  std::int32_t commonName(const TKSData& certificate, std::string& name) override {
    return replaced_.before().commonName(certificate, name);
  }
  std::int32_t organizationalUnit(const TKSData& certificate, std::string& unit) override {
    return replaced_.before().organizationalUnit(certificate, unit);
  }
  bool leadsToRoot(const TKSArray& chain, std::string_view root) override {
    return replaced_.before().leadsToRoot(chain, root);
  }

 private:
  class Code final : public platform::StaticCode {
   public:
    Code(std::unique_ptr<platform::StaticCode> real, WatchedSignatures& owner)
        : real_(std::move(real)), owner_(owner) {}
    std::int32_t checkValidity(std::string& details) override { return real_->checkValidity(details); }
    std::int32_t checkForInstalling(std::string& details) override {
      ++owner_.checks;
      const std::int32_t status = real_->checkForInstalling(details);
      if (const std::function<void()> next = std::exchange(owner_.sequel, nullptr)) next();
      return status;
    }
    std::int32_t checkOneSigner(std::string& details) override { return real_->checkOneSigner(details); }
    std::int32_t copySigningInformation(TKSDictionary& information) override {
      return real_->copySigningInformation(information);
    }

   private:
    std::unique_ptr<platform::StaticCode> real_;
    WatchedSignatures& owner_;
  };

  platform::Replaced<platform::Signatures> replaced_{*this};
};

}  // namespace tks::test

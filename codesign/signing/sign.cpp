#include <exception>
#include <new>
#include <utility>

#include "codesign/Codesign.h"
#include "codesign/signing/identity.h"
#include "codesign/signing/signer.h"

// The part of the public face that signs.

namespace tks::codesign {

struct SigningParts {
  signing::Identity identity;
};

namespace {

/// Runs something that signs: what is thrown becomes an outcome with its text.
template <class Work>
Outcome attempt(Work work) {
  Outcome outcome;
  try {
    work();
  } catch (const Failure& failure) {
    outcome.status = failure.status;
    outcome.text = statusText(failure.status) + " (" + std::to_string(failure.status) + ")";
  } catch (const std::bad_alloc&) {
    outcome.status = status::kNotEnoughMemory;
    outcome.text = "not enough memory";
  } catch (const std::exception& exception) {
    outcome.status = status::kInternalError;
    outcome.text = exception.what();
  }
  return outcome;
}

Outcome refused(const char* reason) {
  Outcome outcome;
  outcome.status = status::kBadParameter;
  outcome.text = reason;
  return outcome;
}

/// An identity by a way to get one; null when that fails.
template <class Load>
std::shared_ptr<const SigningParts> loaded(Outcome* outcome, Load load) {
  std::shared_ptr<const SigningParts> parts;
  Outcome ended = attempt([&] { parts = std::make_shared<const SigningParts>(load()); });
  if (outcome != nullptr) *outcome = std::move(ended);
  return parts;
}

}  // namespace

std::optional<SigningIdentity> SigningIdentity::from(std::shared_ptr<const SigningParts> parts) {
  if (parts == nullptr) return std::nullopt;
  return SigningIdentity(std::move(parts));
}

std::optional<SigningIdentity> SigningIdentity::make(const IdentityPlan& plan, Outcome* outcome) {
  return from(loaded(outcome, [&] { return SigningParts{signing::makeIdentity({plan})}; }));
}

std::optional<SigningIdentity> SigningIdentity::fromFolder(const std::string& folder, Outcome* outcome) {
  return from(loaded(outcome, [&] { return SigningParts{signing::loadIdentity(folder)}; }));
}

std::optional<SigningIdentity> SigningIdentity::fromFiles(const std::string& keyFile, const std::string& chainFile,
                                                          Outcome* outcome) {
  return from(loaded(outcome, [&] { return SigningParts{signing::loadIdentity(keyFile, chainFile)}; }));
}

std::optional<SigningIdentity> SigningIdentity::fromPkcs12(const std::string& file, const std::string& password,
                                                           Outcome* outcome) {
  return from(loaded(outcome, [&] { return SigningParts{signing::loadIdentityFromPkcs12(file, password)}; }));
}

Outcome SigningIdentity::save(const std::string& folder) const {
  return attempt([&] { signing::saveIdentity(parts_->identity, folder); });
}

std::vector<CertificateDescription> SigningIdentity::chain() const {
  std::vector<CertificateDescription> chain;
  attempt([&] {
    for (const Certificate& certificate : parts_->identity.chain) {
      if (auto description = describeCertificate(derOf(certificate.get()))) chain.push_back(*std::move(description));
    }
  });
  return chain;
}

bool SigningIdentity::canStamp() const { return parts_->identity.stampKey != nullptr; }

Outcome sign(const std::string& path, const SigningIdentity* identity, const SigningOptions& options) {
  if (options.hashTypes.empty()) return refused("a signature needs a hash type");
  if (options.timeStamp && (identity == nullptr || !identity->canStamp())) {
    return refused("a time stamp needs an identity with an authority of its own");
  }
  Outcome outcome = attempt([&] {
    signing::SigningOptions all{options};
    if (identity != nullptr) all.identity = &identity->parts_->identity;
    signing::sign(path, all);
  });
  if (!outcome.isGood() && outcome.text.find(path) == std::string::npos) outcome.text = path + ": " + outcome.text;
  return outcome;
}

}  // namespace tks::codesign

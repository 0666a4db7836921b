#include <string>
#include <utility>

#include "codesign/Codesign.h"
#include "codesign/container/code_layout.h"
#include "codesign/description.h"
#include "codesign/outcome.h"
#include "codesign/signing_information.h"
#include "codesign/trust/certificates.h"
#include "codesign/validity.h"

namespace tks::codesign {

struct Code::Parts {
  CodeLayout layout;
  AppleRoots roots;
};

std::optional<Code> Code::open(std::string_view path, Outcome* outcome, const AppleRoots* roots) {
  std::shared_ptr<const Parts> parts;
  Outcome opened = attempt([&] {
    parts = std::make_shared<const Parts>(
        Parts{findCode(std::string(path)), roots != nullptr ? *roots : AppleRoots::builtIn()});
  });
  if (outcome != nullptr) *outcome = std::move(opened);
  if (parts == nullptr) return std::nullopt;
  return Code(std::move(parts));
}

Outcome Code::verify(Depth depth) const {
  Outcome verified;
  Outcome ended = attempt([&] { verified = checkValidity(parts_->layout, parts_->roots, depth); });
  return ended.isGood() ? verified : ended;
}

Outcome Code::verifyOneSigner() const {
  Outcome verified;
  Outcome ended = attempt([&] { verified = checkOneSigner(parts_->layout, parts_->roots); });
  return ended.isGood() ? verified : ended;
}

Outcome Code::meets(std::string_view requirement) const {
  Outcome met;
  Outcome ended = attempt([&] { met = checkRequirement(parts_->layout, parts_->roots, requirement); });
  return ended.isGood() ? met : ended;
}

Description Code::describe() const {
  Description description;
  Outcome ended = attempt([&] {
    description = readDescription(parts_->layout, parts_->roots);
    completeDescription(parts_->layout, parts_->roots, description);
  });
  if (!ended.isGood()) description.outcome = std::move(ended);
  return description;
}

Outcome Code::copyInformation(TKSDictionary& information) const {
  return attempt([&] { information = signingInformation(readDescription(parts_->layout, parts_->roots)); });
}

}  // namespace tks::codesign

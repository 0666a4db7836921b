#include "tools/tksctl/parts/signing_identity.h"

#include <stdexcept>
#include <utility>

namespace tks::ctl {

using codesign::Outcome;
using codesign::SigningIdentity;

void addIdentityOptions(const CommandLine& line, IdentityWishes& wishes) {
  line.option("-i,--identity", wishes.folder, "Folder made by sign --make-identity").typeName("FOLDER");
  line.option("--pkcs12", wishes.pkcs12File, "PKCS #12 file with key and chain").typeName("FILE");
  line.option("--key", wishes.keyFile, "Key in PEM form").typeName("FILE");
  line.option("--chain", wishes.chainFile, "Certificates in PEM form, leaf first, for --key").typeName("FILE");
  line.option("--password", wishes.password, "Of the PKCS #12 file");
}

void require(const Outcome& outcome, const std::string& about) {
  if (outcome.isGood()) return;
  const std::string why = outcome.text.empty() ? outcome.description() : outcome.text;
  throw std::runtime_error(why.starts_with(about + ": ") ? why : about + ": " + why);
}

SigningIdentity loadIdentity(const IdentityWishes& wishes) {
  Outcome outcome;
  if (!wishes.pkcs12File.empty()) {
    auto identity = SigningIdentity::fromPkcs12(wishes.pkcs12File, wishes.password, &outcome);
    require(outcome, wishes.pkcs12File);
    return *std::move(identity);
  }
  if (!wishes.keyFile.empty()) {
    auto identity = SigningIdentity::fromFiles(wishes.keyFile, wishes.chainFile, &outcome);
    require(outcome, wishes.keyFile);
    return *std::move(identity);
  }
  auto identity = SigningIdentity::fromFolder(wishes.folder, &outcome);
  require(outcome, "there is no identity in " + wishes.folder);
  return *std::move(identity);
}

SigningIdentity newIdentity(const codesign::IdentityPlan& plan) {
  Outcome outcome;
  auto identity = SigningIdentity::make(plan, &outcome);
  require(outcome, "no identity could be made");
  return *std::move(identity);
}

}  // namespace tks::ctl

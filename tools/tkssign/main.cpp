#include <CLI/CLI.hpp>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "codesign/Codesign.h"

// Signs launchers for development and tests, and makes identities to do it with.

namespace {

using tks::codesign::HashType;
using tks::codesign::IdentityPlan;
using tks::codesign::Outcome;
using tks::codesign::SigningIdentity;
using tks::codesign::SigningOptions;
using tks::codesign::Storage;

const std::map<std::string, HashType> kDigests{
    {"sha1", HashType::sha1}, {"sha256", HashType::sha256}, {"sha384", HashType::sha384}};
const std::map<std::string, Storage> kStorages{
    {"automatic", Storage::automatic}, {"attributes", Storage::attributes}, {"side-car", Storage::sideCar}};

struct Arguments {
  std::vector<std::string> paths;
  std::string identityFolder;
  std::string keyFile;
  std::string chainFile;
  std::string pkcs12File;
  std::string password;
  bool adHoc = false;
  bool timeStamp = false;
  std::string entitlementsFile;
  std::vector<std::string> digests;
  std::string storage = "automatic";

  std::string newIdentityFolder;
  IdentityPlan plan;
};

void require(const Outcome& outcome) {
  if (!outcome.isGood()) throw std::runtime_error(outcome.text);
}

SigningIdentity loadIdentity(const Arguments& arguments) {
  Outcome outcome;
  const std::optional<SigningIdentity> identity =
      !arguments.identityFolder.empty() ? SigningIdentity::fromFolder(arguments.identityFolder, &outcome)
      : !arguments.pkcs12File.empty() ? SigningIdentity::fromPkcs12(arguments.pkcs12File, arguments.password, &outcome)
                                      : SigningIdentity::fromFiles(arguments.keyFile, arguments.chainFile, &outcome);
  require(outcome);
  return *identity;
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void signAll(const Arguments& arguments, SigningOptions options) {
  std::optional<SigningIdentity> identity;
  if (!arguments.adHoc) identity = loadIdentity(arguments);
  if (arguments.timeStamp) {
    if (!identity || !identity->canStamp()) {
      throw std::runtime_error("a time stamp needs an identity with an authority of its own (--identity)");
    }
    options.timeStamp = std::time(nullptr);
  }
  if (!arguments.entitlementsFile.empty()) options.entitlements = contentOf(arguments.entitlementsFile);
  if (!arguments.digests.empty()) options.hashTypes.clear();
  for (const std::string& digest : arguments.digests) options.hashTypes.push_back(kDigests.at(digest));
  options.storage = kStorages.at(arguments.storage);
  for (const std::string& path : arguments.paths) {
    require(tks::codesign::sign(path, identity ? &*identity : nullptr, options));
  }
}

void makeIdentity(const Arguments& arguments) {
  Outcome outcome;
  const std::optional<SigningIdentity> identity = SigningIdentity::make(arguments.plan, &outcome);
  require(outcome);
  require(identity->save(arguments.newIdentityFolder));
  std::printf("root SHA-256: %s\n", identity->chain().back().sha256.c_str());
}

void describe(CLI::App& app, Arguments& arguments, SigningOptions& options) {
  app.add_option("path", arguments.paths, "Bundle or file to sign; code inside of a bundle first");
  auto* from = app.add_option_group("identity", "Who signs");
  from->add_option("-i,--identity", arguments.identityFolder, "Folder made by --make-identity");
  from->add_option("--pkcs12", arguments.pkcs12File, "PKCS #12 file with key and chain");
  from->add_option("--key", arguments.keyFile, "Key in PEM form");
  from->add_flag("--ad-hoc", arguments.adHoc, "Signed by nobody");
  app.add_option("--chain", arguments.chainFile, "Certificates in PEM form, leaf first, for --key");
  app.add_option("--password", arguments.password, "Of the PKCS #12 file");
  app.add_option("--identifier", options.identifier, "Instead of the bundle's identifier or the file's name");
  app.add_option("--team-id", options.team, "Team in the signature, instead of the certificate's");
  app.add_option("--digest", arguments.digests, "Hash of a directory, several for several directories")
      ->check(CLI::IsMember({"sha1", "sha256", "sha384"}));
  app.add_option("--entitlements", arguments.entitlementsFile, "Property list of entitlements");
  app.add_option("--requirement", options.requirement, "Designated requirement as text");
  app.add_option("--flags", options.flags, "Flags of the directory, for example 0x10000");
  app.add_flag("--timestamp", arguments.timeStamp, "Add a time stamp of the identity's own authority");
  app.add_option("--storage", arguments.storage, "Where the signature of a file that is no Mach-O goes")
      ->check(CLI::IsMember({"automatic", "attributes", "side-car"}));

  app.add_option("--make-identity", arguments.newIdentityFolder, "Make a test identity in this folder");
  app.add_option("--team", arguments.plan.team, "Its team")->capture_default_str();
  app.add_option("--leaf-name", arguments.plan.leafName, "Its common name");
  app.add_option("--intermediate-name", arguments.plan.intermediateName, "")->capture_default_str();
  app.add_option("--root-name", arguments.plan.rootName, "")->capture_default_str();
  app.add_option("--extra-levels", arguments.plan.extraLevels, "Further authorities in the chain")
      ->check(CLI::Range(0, 8));
  app.add_flag("--two-levels", arguments.plan.withoutIntermediate, "No intermediate authority");
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Signs bundles and files as their launcher's checks want it");
  Arguments arguments;
  SigningOptions options;
  describe(app, arguments, options);
  CLI11_PARSE(app, argc, argv);
  const bool hasIdentity = arguments.adHoc || !arguments.identityFolder.empty() || !arguments.pkcs12File.empty() ||
                           (!arguments.keyFile.empty() && !arguments.chainFile.empty());
  if (arguments.newIdentityFolder.empty() && (arguments.paths.empty() || !hasIdentity)) {
    std::fputs("tkssign: say what to sign and with which identity; see --help\n", stderr);
    return 2;
  }
  try {
    if (!arguments.newIdentityFolder.empty()) makeIdentity(arguments);
    if (!arguments.paths.empty()) {
      if (!hasIdentity) arguments.identityFolder = arguments.newIdentityFolder;
      signAll(arguments, options);
    }
    return 0;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "tkssign: %s\n", exception.what());
    return 1;
  }
}

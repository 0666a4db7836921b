#include <ctime>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>

#include "codesign/Codesign.h"
#include "tools/tksctl/commands/sign.h"
#include "tools/tksctl/parts/file_content.h"
#include "tools/tksctl/parts/signing_identity.h"

namespace tks::ctl {
namespace {

using codesign::HashType;
using codesign::IdentityPlan;
using codesign::SigningIdentity;
using codesign::SigningOptions;
using codesign::Storage;

const std::map<std::string, HashType> kDigests{
    {"sha1", HashType::sha1}, {"sha256", HashType::sha256}, {"sha384", HashType::sha384}};
const std::map<std::string, Storage> kStorages{
    {"automatic", Storage::automatic}, {"attributes", Storage::attributes}, {"side-car", Storage::sideCar}};

struct Wishes {
  std::vector<std::string> paths;
  IdentityWishes identity;
  bool adHoc = false;
  bool timeStamp = false;
  std::string entitlementsFile;
  std::vector<std::string> digests;
  std::string storage = "automatic";
  SigningOptions options;

  std::string newIdentityFolder;
  IdentityPlan plan;

  bool hasIdentity() const { return adHoc || identity.isGiven(); }
};

/// Nothing: signed by nobody. An identity that is made now is used where none is named.
std::optional<SigningIdentity> identityOf(const Wishes& wishes) {
  if (wishes.adHoc) return std::nullopt;
  IdentityWishes identity = wishes.identity;
  if (!identity.isGiven()) identity.folder = wishes.newIdentityFolder;
  return loadIdentity(identity);
}

std::string entitlementsIn(const std::string& path) {
  constexpr std::size_t kLargest = std::size_t{1} << 20;
  const TKSData content = contentOf(path, kLargest);
  return {content.begin(), content.end()};
}

/// Signs all, up to a signal. How many were signed.
std::size_t signAll(Output& out, const Wishes& wishes, const Interrupts& interrupts) {
  const std::optional<SigningIdentity> identity = identityOf(wishes);
  SigningOptions options = wishes.options;
  if (wishes.timeStamp) {
    if (!identity || !identity->canStamp()) {
      throw std::runtime_error("a time stamp needs an identity with an authority of its own (--identity)");
    }
    options.timeStamp = std::time(nullptr);
  }
  if (!wishes.entitlementsFile.empty()) options.entitlements = entitlementsIn(wishes.entitlementsFile);
  if (!wishes.digests.empty()) options.hashTypes.clear();
  for (const std::string& digest : wishes.digests) options.hashTypes.push_back(kDigests.at(digest));
  options.storage = kStorages.at(wishes.storage);
  TKSArray signedPaths;
  for (const std::string& path : wishes.paths) {
    if (interrupts.came()) break;
    require(codesign::sign(path, identity ? &*identity : nullptr, options), path);
    out.detail(1, "signed " + path);
    signedPaths.append(path);
    out.set("signed", signedPaths);
  }
  return signedPaths.size();
}

void makeIdentity(Output& out, const Wishes& wishes) {
  const SigningIdentity identity = newIdentity(wishes.plan);
  require(identity.save(wishes.newIdentityFolder), wishes.newIdentityFolder);
  const std::string root = identity.chain().back().sha256;
  out.line("root SHA-256: " + root);
  out.set("identity", wishes.newIdentityFolder);
  out.set("rootSHA256", root);
}

Exit act(Context& context, const Wishes& wishes) {
  if (wishes.newIdentityFolder.empty() && (wishes.paths.empty() || !wishes.hasIdentity())) {
    return context.out.fail(Exit::usage, "say what to sign and with which identity; see --help");
  }
  // What is half signed is no better than what is not signed: a signal waits for the file in hand.
  context.interrupts.hold();
  if (!wishes.newIdentityFolder.empty()) makeIdentity(context.out, wishes);
  const std::size_t count = wishes.paths.empty() ? 0 : signAll(context.out, wishes, context.interrupts);
  if (!context.interrupts.came()) return Exit::ok;
  const std::string done = std::to_string(count) + " of " + std::to_string(wishes.paths.size());
  return context.out.fail(Exit::interrupted, "interrupted: " + done + " signed");
}

void addNewIdentityOptions(const CommandLine& line, Wishes& wishes) {
  line.option("--make-identity", wishes.newIdentityFolder, "Make a test identity in this folder").typeName("FOLDER");
  line.option("--team", wishes.plan.team, "Its team").showsDefault();
  line.option("--leaf-name", wishes.plan.leafName, "Its common name");
  line.option("--intermediate-name", wishes.plan.intermediateName, "Its intermediate authority").showsDefault();
  line.option("--root-name", wishes.plan.rootName, "Its root authority").showsDefault();
  line.option("--extra-levels", wishes.plan.extraLevels, "Further authorities in its chain, 0 to 8")
      .typeName("NUMBER")
      .between(0, 8);
  line.flag("--two-levels", wishes.plan.withoutIntermediate, "No intermediate authority");
}

void addSigningOptions(const CommandLine& line, Wishes& wishes) {
  SigningOptions& options = wishes.options;
  line.option("--identifier", options.identifier, "Instead of the bundle's identifier or the file's name");
  line.option("--team-id", options.team, "Team in the signature, instead of the certificate's");
  line.option("--digest", wishes.digests, "sha1, sha256 or sha384; several for several directories")
      .typeName("HASH")
      .oneOf({"sha1", "sha256", "sha384"});
  line.option("--entitlements", wishes.entitlementsFile, "Property list of entitlements").typeName("FILE");
  line.option("--requirement", options.requirement, "Designated requirement as text");
  line.option("--flags", options.flags, "Flags of the directory, for example 0x10000").typeName("BITS");
  line.flag("--timestamp", wishes.timeStamp, "Add a time stamp of the identity's own authority");
  line.option("--storage", wishes.storage, "automatic, attributes or side-car: for files that are no Mach-O")
      .typeName("WHERE")
      .oneOf({"automatic", "attributes", "side-car"});
}

}  // namespace

Command signCommand() {
  return {
      .name = "sign",
      .summary = "signs bundles and files, and makes identities to test with",
      .description =
          "Signs in place: a bundle, a Mach-O file or any other file. Code inside of a bundle is signed first, "
          "then the bundle. tkssign is a short name for this command.",
      .examples = {{"tksctl sign --make-identity id", "An identity for development, in the folder id."},
                   {"tksctl sign -i id --timestamp \"Tarvo Kovra Start.app\"", "Signs a launcher with it."}},
      .setUp = [](const CommandLine& line) -> Action {
        auto wishes = std::make_shared<Wishes>();
        line.option("path", wishes->paths, "Bundles or files to sign; code inside of a bundle first").typeName("PATH");
        addIdentityOptions(line, wishes->identity);
        line.flag("--ad-hoc", wishes->adHoc, "Signed by nobody");
        addNewIdentityOptions(line, *wishes);
        addSigningOptions(line, *wishes);
        return [wishes](Context& context) { return act(context, *wishes); };
      }};
}

}  // namespace tks::ctl

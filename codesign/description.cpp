#include "codesign/description.h"

#include <array>
#include <string_view>

#include "codesign/code_slice.h"
#include "codesign/outcome.h"
#include "codesign/requirement/requirement.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kLargestPart = std::size_t{1} << 20;
/// How a ticket begins. Bundles of long ago have a link to their seal in its place.
constexpr std::string_view kTicketMark = "s8ch";

struct FlagName {
  std::uint32_t flag;
  std::string_view name;
};
constexpr auto kFlagNames = std::to_array<FlagName>({{directory_flag::kHost, "host"},
                                                     {directory_flag::kAdHoc, "adhoc"},
                                                     {directory_flag::kHard, "hard"},
                                                     {directory_flag::kKill, "kill"},
                                                     {directory_flag::kExpires, "expires"},
                                                     {directory_flag::kRestrict, "restrict"},
                                                     {directory_flag::kEnforcement, "enforcement"},
                                                     {directory_flag::kLibraryValidation, "library-validation"},
                                                     {directory_flag::kRuntime, "runtime"},
                                                     {directory_flag::kLinkerSigned, "linker-signed"}});

/// Runs one group of the description: the first thing that is not in order ends it, and what has been set up to there
/// stays. Shortages end everything.
template <class Group>
Outcome asFarAsInOrder(Group group) {
  try {
    group();
    return {};
  } catch (const Failure& failure) {
    return outcomeOf(failure.status);
  }
}

std::vector<DirectoryDescription> describeAll(const DirectorySet& directories) {
  std::vector<DirectoryDescription> all;
  for (const HashType type : directories.types()) {
    const CodeDirectory& directory = directories.byType().at(static_cast<std::uint8_t>(type));
    const Bytes full = directory.fullHash().bytes();
    all.push_back({type, directory.cdHash(), TKSData(full.begin(), full.end())});
  }
  return all;
}

std::size_t slicesOf(const CodeLayout& layout) { return layout.image ? layout.image->slices().size() : 1; }

/// Describes code by the architecture that suits this machine best.
class Describer {
 public:
  Describer(const CodeLayout& layout, const AppleRoots& roots)
      : layout_(layout), roots_(roots), slice_(layout, layout.image ? layout.image->chosenSlice() : 0, roots) {}

  Description run() {
    result_.executable = layout_.executable;
    result_.format = layout_.format;
    result_.signer = asFarAsInOrder([&] { slice_.directories(); });
    result_.isSigned = result_.signer.isGood();
    if (!result_.isSigned) return std::move(result_);
    addDirectories();
    asFarAsInOrder([&] { result_.infoPlist = slice_.infoPlist(); });
    result_.signer = asFarAsInOrder([&] { addSigner(); });
    asFarAsInOrder([&] { addRequirements(); });
    asFarAsInOrder([&] { addEntitlements(); });
    asFarAsInOrder([&] { addContents(); });
    return std::move(result_);
  }

 private:
  void addDirectories() {
    const DirectorySet& directories = slice_.directories();
    const CodeDirectory& best = directories.best();
    result_.identifier = best.identifier();
    result_.flags = best.flags();
    result_.isAdHoc = best.hasFlag(directory_flag::kAdHoc);
    result_.platform = best.platform();
    result_.runtimeVersion = best.runtimeVersion();
    result_.directoryVersion = best.version();
    result_.directories = describeAll(directories);
    for (const DirectoryDescription& directory : result_.directories) {
      if (directory.hashType == directories.bestType()) result_.best = directory;
    }
  }

  void addSigner() {
    result_.message = slice_.signatureMessage();
    result_.team = slice_.directories().best().team();
    const std::optional<Signer>& signer = slice_.signer();
    checkOneSigner();
    if (!signer) return;
    for (const TKSData& certificate : signer->certificates) result_.chain.emplace_back().der = certificate;
    result_.signingTime = signer->claimedTime;
    result_.timeStamp = signer->certifiedTime;
  }

  /// The signer is shown for all of the code, so every architecture must have the same one.
  void checkOneSigner() {
    for (std::size_t i = 0; i < slicesOf(layout_); ++i) {
      if (i == slice_.number()) continue;
      CodeSlice other(layout_, i, roots_);
      slice_.checkSameSigner(other);
    }
  }

  void addRequirements() {
    std::string implicit = implicitRequirement(slice_.requirementContext());
    // Code that nobody signed is known by its hashes alone, and each architecture has its own.
    if (!slice_.signer()) implicit += otherHashes();
    std::string designated = implicit;
    if (const std::optional<ByteSource> source = slice_.component(slot::kRequirements)) {
      TKSData blob = source->all(kLargestPart).value_or(TKSData());
      const std::optional<RequirementSet> set = RequirementSet::fromBlob(blob);
      if (!set) fail(status::kSignatureInvalid);
      result_.requirements = set->text();
      result_.requirementBlob = std::move(blob);
      if (const Requirement* own = set->find(RequirementType::designated)) designated = own->text();
    }
    result_.designatedRequirement = std::move(designated);
    result_.implicitRequirement = std::move(implicit);
  }

  std::string otherHashes() const {
    std::string text;
    for (std::size_t i = 0; i < slicesOf(layout_); ++i) {
      if (i == slice_.number()) continue;
      CodeSlice other(layout_, i, roots_);
      text.append(" or ").append(implicitRequirement(other.requirementContext()));
    }
    return text;
  }

  void addEntitlements() {
    const std::optional<ByteSource> source = slice_.component(slot::kEntitlements);
    result_.entitlementsBlob = source ? source->all(kLargestPart) : std::nullopt;
    if (result_.entitlementsBlob) result_.entitlements = slice_.entitlements();
  }

  /// The ticket of a notarized application lies beside what is sealed.
  void addContents() {
    result_.files = slice_.files();
    if (!layout_.isBundle()) return;
    const std::shared_ptr<const File> file = File::openIfThere(layout_.supportFolder + "/CodeResources");
    std::optional<TKSData> content = file ? ByteSource(file).all(kLargestPart) : std::nullopt;
    if (content &&
        std::string_view(reinterpret_cast<const char*>(content->data()), content->size()).starts_with(kTicketMark)) {
      result_.ticket = std::move(content);
    }
  }

  const CodeLayout& layout_;
  const AppleRoots& roots_;
  CodeSlice slice_;
  Description result_;
};

std::vector<std::string> namesOf(std::uint32_t flags) {
  std::vector<std::string> names;
  for (const FlagName& known : kFlagNames) {
    if ((flags & known.flag) != 0) names.emplace_back(known.name);
  }
  return names;
}

}  // namespace

Description readDescription(const CodeLayout& layout, const AppleRoots& roots) {
  return Describer(layout, roots).run();
}

void completeDescription(const CodeLayout& layout, const AppleRoots& roots, Description& description) {
  description.flagNames = namesOf(description.flags);
  for (CertificateDescription& certificate : description.chain) {
    if (std::optional<CertificateDescription> known = describeCertificate(certificate.der)) {
      certificate = *std::move(known);
    }
  }
  if (!layout.image) return;
  for (std::size_t i = 0; i < slicesOf(layout); ++i) {
    ArchitectureDescription& one = description.architectures.emplace_back();
    one.name = layout.image->slices()[i].architecture.name();
    CodeSlice slice(layout, i, roots);
    if (slice.isSigned()) one.directories = describeAll(slice.directories());
  }
}

}  // namespace tks::codesign

#include "codesign/signing_information.h"

#include <tksinterface/TKSURL.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "codesign/code_slice.h"
#include "codesign/requirement/requirement.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kLargestPart = std::size_t{1} << 20;
/// How a ticket begins. Bundles of long ago have a link to their seal in its place.
constexpr std::string_view kTicketMark = "s8ch";

TKSValue data(Bytes bytes) { return TKSData(bytes.begin(), bytes.end()); }
TKSValue fileURL(const std::string& path) { return TKSURL::fileURLWithPath(path).absoluteString(); }

/// Runs one group of the information: the first thing that is not in order ends it.
template <class Group>
void asFarAsInOrder(Group group) {
  try {
    group();
  } catch (const Failure&) {
    // What has been set up to here stays.
  }
}

void addDirectories(const DirectorySet& directories, TKSDictionary& information) {
  const CodeDirectory& best = directories.best();
  information.set("identifier", best.identifier());
  information.set("flags", best.flags());
  information.set("source", "embedded");
  information.set("unique", best.cdHash());
  information.set("digest-algorithm", static_cast<int>(directories.bestType()));
  if (best.platform() != 0) information.set("platform-identifier", best.platform());
  if (best.runtimeVersion() != 0) information.set("runtime-version", best.runtimeVersion());

  TKSArray types;
  TKSArray hashes;
  TKSDictionary fullHashes;
  for (const HashType type : directories.types()) {
    const auto number = static_cast<std::uint8_t>(type);
    const CodeDirectory& directory = directories.byType().at(number);
    types.append(number);
    hashes.append(directory.cdHash());
    fullHashes.set(std::to_string(number), data(directory.fullHash().bytes()));
  }
  information.set("digest-algorithms", types);
  information.set("cdhashes", hashes);
  information.set("cdhashes-full", fullHashes);
}

/// The signer is shown for all of the code: whoever asks goes by it for every architecture.
void checkOneSigner(const CodeLayout& layout, CodeSlice& slice, const AppleRoots& roots) {
  const std::size_t slices = layout.image ? layout.image->slices().size() : 1;
  for (std::size_t i = 0; i < slices; ++i) {
    if (i == slice.number()) continue;
    CodeSlice other(layout, i, roots);
    slice.checkSameSigner(other);
  }
}

void addSigner(const CodeLayout& layout, CodeSlice& slice, const AppleRoots& roots, TKSDictionary& information) {
  information.set("cms", slice.signatureMessage());
  if (const std::optional<std::string>& team = slice.directories().best().team()) information.set("teamid", *team);
  const std::optional<Signer>& signer = slice.signer();
  checkOneSigner(layout, slice, roots);
  if (!signer) return;
  TKSArray certificates;
  for (const TKSData& certificate : signer->certificates) certificates.append(certificate);
  information.set("certificates", certificates);
  const auto date = [](std::time_t moment) { return TKSDate{static_cast<double>(moment)}; };
  if (signer->claimedTime) information.set("signing-time", date(*signer->claimedTime));
  if (signer->certifiedTime) information.set("signing-timestamp", date(*signer->certifiedTime));
}

void addRequirements(CodeSlice& slice, TKSDictionary& information) {
  const std::string implicit = implicitRequirement(slice.requirementContext());
  std::string designated = implicit;
  if (const std::optional<ByteSource> source = slice.component(slot::kRequirements)) {
    const TKSData blob = source->all(kLargestPart).value_or(TKSData());
    const std::optional<RequirementSet> set = RequirementSet::fromBlob(blob);
    if (!set) fail(status::kSignatureInvalid);
    information.set("requirements", set->text());
    information.set("requirement-data", blob);
    if (const Requirement* own = set->find(RequirementType::designated)) designated = own->text();
  }
  information.set("designated-requirement", designated);
  information.set("implicit-requirement", implicit);
}

void addEntitlements(CodeSlice& slice, TKSDictionary& information) {
  const std::optional<ByteSource> source = slice.component(slot::kEntitlements);
  const std::optional<TKSData> blob = source ? source->all(kLargestPart) : std::nullopt;
  if (!blob) return;
  information.set("entitlements", *blob);
  if (const TKSDictionary entitlements = slice.entitlements(); !entitlements.empty()) {
    information.set("entitlements-dict", entitlements);
  }
}

/// The ticket of a notarized application lies beside what is sealed.
void addContents(const CodeLayout& layout, CodeSlice& slice, TKSDictionary& information) {
  TKSArray files;
  for (const std::string& path : slice.files()) files.append(fileURL(path));
  information.set("changed-files", files);
  if (!layout.isBundle()) return;
  const std::shared_ptr<const File> ticket = File::openIfThere(layout.supportFolder + "/CodeResources");
  const std::optional<TKSData> content = ticket ? ByteSource(ticket).all(kLargestPart) : std::nullopt;
  if (content &&
      std::string_view(reinterpret_cast<const char*>(content->data()), content->size()).starts_with(kTicketMark)) {
    information.set("stapled-ticket", *content);
  }
}

}  // namespace

TKSDictionary signingInformation(const CodeLayout& layout, const AppleRoots& roots) {
  TKSDictionary information;
  information.set("main-executable", fileURL(layout.executable));
  CodeSlice slice(layout, layout.image ? layout.image->chosenSlice() : 0, roots);
  if (!slice.isSigned()) return information;
  information.set("format", layout.format);
  addDirectories(slice.directories(), information);
  asFarAsInOrder([&] {
    if (const TKSDictionary info = slice.infoPlist(); !info.empty()) information.set("info-plist", info);
  });
  asFarAsInOrder([&] { addSigner(layout, slice, roots, information); });
  asFarAsInOrder([&] { addRequirements(slice, information); });
  asFarAsInOrder([&] { addEntitlements(slice, information); });
  asFarAsInOrder([&] { addContents(layout, slice, information); });
  return information;
}

}  // namespace tks::codesign

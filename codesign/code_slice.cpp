#include "codesign/code_slice.h"

#include <algorithm>

#include "codesign/container/code_pages.h"
#include "platform/platform.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kLargestPart = std::size_t{1} << 20;
constexpr std::size_t kBlobHeader = 8;

TKSDictionary readDictionary(const std::optional<ByteSource>& source, std::size_t skip) {
  const std::optional<TKSData> content = source ? source->all(kLargestPart) : std::nullopt;
  if (!content || content->size() < skip) return {};
  return platform::propertyLists().parse(Bytes(*content).subspan(skip), nullptr).dictionary();
}

}  // namespace

CodeSlice::CodeSlice(const CodeLayout& layout, std::size_t slice, const AppleRoots& roots)
    : layout_(layout), slice_(slice), roots_(roots), components_(layout, slice) {}

const DirectorySet& CodeSlice::directories() {
  if (!loaded_) {
    loaded_ = true;
    try {
      loadDirectories();
    } catch (const Failure& failure) {
      loadFailure_ = failure;
    }
  }
  if (loadFailure_) throw Failure(*loadFailure_);
  return directories_;
}

void CodeSlice::loadDirectories() {
  if (!addDirectory(slot::kCodeDirectory)) fail(status::kUnsigned);
  // Alternate directories are numbered without a gap.
  for (std::uint32_t slot = slot::kFirstAlternate; slot <= slot::kLastAlternate; ++slot) {
    if (!addDirectory(slot)) break;
  }
  directories_.choose();
}

bool CodeSlice::addDirectory(std::uint32_t slot) {
  std::optional<ByteSource> blob = components_.find(slot);
  if (!blob) return false;
  directories_.add(CodeDirectory(*std::move(blob)), slot == slot::kCodeDirectory);
  return true;
}

bool CodeSlice::isSigned() {
  try {
    directories();
    return true;
  } catch (const Failure&) {
    return false;
  }
}

bool CodeSlice::isAdHoc() { return isSigned() && directories_.best().hasFlag(directory_flag::kAdHoc); }

TKSData CodeSlice::signatureMessage() {
  const std::optional<ByteSource> source = components_.find(slot::kSignature);
  if (!source) fail(status::kUnsigned);
  std::optional<TKSData> message = source->all(kLargestPart);
  if (!message) fail(status::kUnknownFormat);
  return *std::move(message);
}

void CodeSlice::checkSigner() {
  if (!signerChecked_) {
    signerChecked_ = true;
    try {
      if (!isAdHoc()) {
        const TKSData message = signatureMessage();
        // The message is decoded before anybody asks for the directories.
        if (!isSigned() && !SignedMessage::isOne(message)) fail(status::kUnknownFormat);
        signer_ = verifySignature(message, directories(), roots_);
      }
    } catch (const Failure& failure) {
      signerFailure_ = failure;
    }
  }
  if (signerFailure_) throw Failure(*signerFailure_);
}

const std::optional<Signer>& CodeSlice::signer() {
  checkSigner();
  return signer_;
}

Status CodeSlice::failureOf(std::uint32_t slot) const {
  switch (slot) {
    case slot::kInfoPlist:
      return status::kInfoPlistFailed;
    case slot::kResources:
      return status::kResourceDirectoryFailed;
    default:
      return status::kSignatureFailed;
  }
}

std::optional<ByteSource> CodeSlice::component(std::uint32_t slot) {
  checkSigner();
  // Looked for in any case: parts of one signature in two places are a fault, sealed or not.
  std::optional<ByteSource> found = components_.find(slot);
  const std::optional<Digest> expected = directories().best().specialHash(slot);
  if (!expected) return std::nullopt;  // what is there without being sealed does not count
  if (!found || !hashOf(*found, directories().bestType()).matches(expected->bytes())) fail(failureOf(slot));
  return found;
}

void CodeSlice::checkComponents() {
  checkSigner();
  for (std::uint32_t slot = std::min(directories().best().specialSlots(), slot::kLastSpecial); slot >= 1; --slot) {
    if (slot != slot::kResources) component(slot);
  }
}

void CodeSlice::checkTopDirectory() {
  const std::optional<ByteSource> list = component(slot::kTopDirectory);
  if (!list) return;
  std::vector<std::uint32_t> expected{slot::kCodeDirectory};
  for (std::uint32_t slot = 1; slot <= slot::kLastSpecial; ++slot) {
    if (component(slot)) expected.push_back(slot);
  }
  for (std::uint32_t i = 0; i + 1 < directories().size(); ++i) expected.push_back(slot::kFirstAlternate + i);
  expected.push_back(slot::kSignature);

  const TKSData content = list->all(kLargestPart).value_or(TKSData());
  std::vector<std::uint32_t> listed;
  for (std::size_t at = 0; at + 4 <= content.size(); at += 4) listed.push_back(big32(&content[at]));
  if (listed != expected) fail(status::kSignatureFailed);
}

void CodeSlice::checkCodePages() { checkPages(components_.code(), directories()); }

void CodeSlice::checkNothingFollows() {
  const std::uint64_t limit = directories().best().limit();
  if (!layout_.image) {
    if (limit != layout_.file->size()) fail(status::kSignatureInvalid);
    return;
  }
  const Slice& slice = layout_.image->slices()[slice_];
  const ImageLayout image = layout_.image->layout(slice);
  if (image.signature && (image.signature->offset != limit || limit + image.signature->size != slice.size)) {
    fail(status::kSignatureInvalid);
  }
}

void CodeSlice::checkBundleIsSealed() {
  if (!layout_.isBundle()) return;
  if (!layout_.infoPlist.empty() && layout_.infoPlist != layout_.executable && !component(slot::kInfoPlist)) {
    fail(status::kInfoPlistFailed);
  }
  if (!component(slot::kResources)) fail(status::kResourcesNotFound);
}

void CodeSlice::checkSameSigner(CodeSlice& other) {
  if (directories().best().team() != other.directories().best().team()) fail(status::kSignatureInvalid);
  const std::optional<Signer>& own = signer();
  const std::optional<Signer>& others = other.signer();
  if (own.has_value() != others.has_value()) fail(status::kSignatureInvalid);
  if (own && !isSameMaker(own->view(), others->view())) fail(status::kSignatureInvalid);
}

std::vector<std::string_view> CodeSlice::countedFiles() {
  std::vector<std::string_view> names{componentName(slot::kResources)};
  const std::uint32_t alternates = static_cast<std::uint32_t>(directories().size()) - 1;
  if (!components_.areInFolder()) return names;
  names.push_back(componentName(slot::kCodeDirectory));
  names.push_back(componentName(slot::kSignature));
  for (std::uint32_t i = 0; i < alternates; ++i) names.push_back(componentName(slot::kFirstAlternate + i));
  for (std::uint32_t slot = 1; slot <= slot::kLastSpecial; ++slot) {
    const std::optional<ByteSource> part = components_.find(slot);
    // One that is not sealed says nothing; it may lie there all the same, as what it is.
    if (part && (component(slot) || isBlobFor(slot, *part))) names.push_back(componentName(slot));
  }
  return names;
}

void CodeSlice::checkRequirement(const Requirement& requirement) {
  if (!requirement.isMetBy(requirementContext())) fail(status::kRequirementFailed);
}

RequirementContext CodeSlice::requirementContext() {
  RequirementContext context;
  context.identifier = directories().best().identifier();
  context.cdHash = directories().best().cdHash();
  if (signer()) context.chain = signer_->view();
  context.info = infoPlist();
  context.entitlements = entitlements();
  context.roots = &roots_;
  return context;
}

TKSDictionary CodeSlice::infoPlist() { return readDictionary(component(slot::kInfoPlist), 0); }

TKSDictionary CodeSlice::entitlements() { return readDictionary(component(slot::kEntitlements), kBlobHeader); }

}  // namespace tks::codesign

#include "codesign/container/signature_components.h"

#include <sys/stat.h>

#include <utility>

#include "codesign/container/status.h"
#include "platform/posix/extended_attributes.h"

namespace tks::codesign {
namespace {

struct NamedSlot {
  std::uint32_t slot;
  std::string_view name;
};
constexpr NamedSlot kNames[] = {
    {slot::kCodeDirectory, "CodeDirectory"},
    {slot::kSignature, "CodeSignature"},
    {slot::kRequirements, "CodeRequirements"},
    {slot::kResources, "CodeResources"},
    {slot::kTopDirectory, "CodeTopDirectory"},
    {slot::kEntitlements, "CodeEntitlements"},
    {slot::kRepSpecific, "CodeRepSpecific"},
    {slot::kEntitlementsDer, "CodeEntitlementDER"},
    {slot::kFirstConstraint, "LaunchConstraintSelf"},
    {slot::kFirstConstraint + 1, "LaunchConstraintParent"},
    {slot::kFirstConstraint + 2, "LaunchConstraintResponsible"},
    {slot::kFirstConstraint + 3, "LibraryConstraint"},
    // No mistake here: the platform stores alternate directories under the requirements' name.
    {slot::kFirstAlternate, "CodeRequirements-1"},
    {slot::kFirstAlternate + 1, "CodeRequirements-2"},
    {slot::kFirstAlternate + 2, "CodeRequirements-3"},
    {slot::kFirstAlternate + 3, "CodeRequirements-4"},
    {slot::kFirstAlternate + 4, "CodeRequirements-5"},
};

}  // namespace

std::string_view componentName(std::uint32_t slot) {
  for (const NamedSlot& known : kNames) {
    if (known.slot == slot) return known.name;
  }
  return {};
}

SignatureComponents::SignatureComponents(const CodeLayout& layout, std::size_t slice)
    : layout_(layout), slice_(slice) {}

std::optional<ByteSource> SignatureComponents::find(std::uint32_t slot) {
  if (!layout_.isBundle()) return slot == slot::kResources ? std::nullopt : findInExecutable(slot);
  if (slot == slot::kInfoPlist) {
    const std::shared_ptr<const File> file = layout_.infoPlist.empty() ? nullptr : File::openIfThere(layout_.infoPlist);
    return file == nullptr ? std::nullopt : std::optional(ByteSource(file));
  }
  if (slot == slot::kResources) return findInFolder(slot);
  if (std::optional<ByteSource> found = findInExecutable(slot)) return exclusively(true, std::move(found));
  return exclusively(false, findInFolder(slot));
}

/// Parts of one signature come from one place.
std::optional<ByteSource> SignatureComponents::exclusively(bool fromExecutable, std::optional<ByteSource> found) {
  if (!found) return found;
  if (fromExecutable_.value_or(fromExecutable) != fromExecutable) fail(status::kSignatureFailed);
  fromExecutable_ = fromExecutable;
  return found;
}

std::optional<ByteSource> SignatureComponents::findInExecutable(std::uint32_t slot) {
  return layout_.image ? findInImage(slot) : findInAttributes(slot);
}

std::optional<ByteSource> SignatureComponents::findInImage(std::uint32_t slot) {
  const Slice& slice = layout_.image->slices()[slice_];
  if (!image_) image_ = layout_.image->layout(slice);
  const ByteSource code = layout_.image->fromStartOf(slice);
  if (slot == slot::kInfoPlist) {
    if (!image_->infoPlist) return std::nullopt;
    return code.part(image_->infoPlist->offset, image_->infoPlist->size);
  }
  if (!image_->signature) return std::nullopt;
  const ImageLayout::Range& area = *image_->signature;
  if (area.offset > code.size() || area.size > code.size() - area.offset) fail(status::kSignatureInvalid);
  if (!super_) super_.emplace(code.part(area.offset, area.size));
  return super_->component(slot);
}

std::optional<ByteSource> SignatureComponents::findInAttributes(std::uint32_t slot) {
  const std::string_view name = componentName(slot);
  if (name.empty() || slot == slot::kResources) return std::nullopt;
  if (!attributes_) {
    attributes_ = posix::readExtendedAttributes(layout_.executable, nullptr).value_or(TKSDictionary());
  }
  const TKSValue* value = attributes_->find(std::string(kAttributePrefix).append(name));
  return value == nullptr ? std::nullopt : std::optional(ByteSource(value->data()));
}

std::optional<ByteSource> SignatureComponents::findInFolder(std::uint32_t slot) const {
  const std::string_view name = componentName(slot);
  if (name.empty()) return std::nullopt;
  const std::string path = layout_.supportFolder + "/" + std::string(kSignatureFolder) + "/" + std::string(name);
  const std::shared_ptr<const File> file = File::openIfThere(path);
  return file == nullptr ? std::nullopt : std::optional(ByteSource(file));
}

ByteSource SignatureComponents::code() const {
  return layout_.image ? layout_.image->fromStartOf(layout_.image->slices()[slice_]) : ByteSource(layout_.file);
}

std::vector<std::string> SignatureComponents::files() const {
  std::vector<std::string> files{layout_.executable};
  for (const NamedSlot& known : kNames) {
    if (!layout_.isBundle()) break;
    const std::string path =
        layout_.supportFolder + "/" + std::string(kSignatureFolder) + "/" + std::string(known.name);
    struct stat found {};
    if (::stat(path.c_str(), &found) == 0) files.push_back(path);
  }
  return files;
}

}  // namespace tks::codesign

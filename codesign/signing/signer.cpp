#include "codesign/signing/signer.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string_view>

#include "codesign/container/code_layout.h"
#include "codesign/container/signature_components.h"
#include "codesign/container/super_blob.h"
#include "codesign/requirement/requirement.h"
#include "codesign/signing/directory_writer.h"
#include "codesign/signing/mach_o_writer.h"
#include "codesign/signing/message.h"
#include "codesign/signing/seal_writer.h"
#include "codesign/trust/certificates.h"
#include "formats/apple_double.h"
#include "foundation/values/FilePaths.h"
#include "platform/platform.h"
#include "platform/posix/extended_attributes.h"
#include "platform/posix/whole_files.h"

namespace tks::signing {
namespace {

namespace slot = codesign::slot;
namespace magic = codesign::magic;
namespace fs = std::filesystem;

constexpr std::size_t kLargestFile = std::size_t{2} << 30;
/// Room for a message with its chain and a time stamp.
constexpr std::size_t kMessageRoom = 18000;

TKSData readFile(const std::string& path) {
  TKSError error;
  std::optional<TKSData> content = posix::readWholeFile(path, kLargestFile, &error);
  if (!content) throw std::runtime_error(error.localizedDescription);
  return *std::move(content);
}

void writeFile(const std::string& path, const TKSData& content) {
  TKSError error;
  if (!posix::replaceFile(path, content, &error)) throw std::runtime_error(error.localizedDescription);
}

class Signing {
 public:
  Signing(const std::string& path, const SigningOptions& options)
      : layout_(codesign::findCode(path)), options_(options) {}

  void run() {
    removeOldParts();
    collectComponents();
    if (layout_.image) {
      signImages();
    } else {
      signWhole();
    }
  }

 private:
  std::string signatureFolder() const { return layout_.supportFolder + "/" + std::string(codesign::kSignatureFolder); }

  /// What an earlier signature has left in files would be taken for parts of this one.
  void removeOldParts() const {
    if (layout_.isBundle()) fs::remove_all(signatureFolder());
  }

  std::string identifier() const {
    if (!options_.identifier.empty()) return options_.identifier;
    if (!layout_.infoPlist.empty()) {
      const TKSValue info = platform::propertyLists().parse(readFile(layout_.infoPlist), nullptr);
      if (info["CFBundleIdentifier"].isText()) return std::string(info["CFBundleIdentifier"].text());
    }
    return std::string(withoutExtension(lastPathComponent(layout_.executable)));
  }

  std::string team() const {
    if (options_.withoutTeam || options_.identity == nullptr) return {};
    if (!options_.team.empty()) return options_.team;
    return codesign::organizationalUnitOf(options_.identity->leaf()).value_or("");
  }

  void collectComponents() {
    if (options_.linkerSigned) return;
    if (!layout_.infoPlist.empty()) components_[slot::kInfoPlist] = readFile(layout_.infoPlist);
    if (!options_.withoutRequirements) components_[slot::kRequirements] = requirements();
    if (!options_.entitlements.empty()) {
      components_[slot::kEntitlements] =
          makeBlob(magic::kEntitlements, TKSData(options_.entitlements.begin(), options_.entitlements.end()));
    }
    if (layout_.isBundle()) components_[slot::kResources] = writeSeal();
    if (options_.topDirectory) components_[slot::kTopDirectory] = topDirectory();
  }

  TKSData writeSeal() const {
    fs::create_directories(signatureFolder());
    SealOptions seal;
    seal.firstVersionOnly = options_.firstVersionSeal;
    seal.hashTypes = options_.hashTypes;
    TKSData content = makeSeal(layout_, seal);
    writeFile(signatureFolder() + "/CodeResources", content);
    return content;
  }

  TKSData requirements() const {
    TKSData content;
    if (options_.requirement.empty()) {
      append32(content, 0);
      return makeBlob(magic::kRequirements, content);
    }
    const std::optional<codesign::Requirement> parsed = codesign::Requirement::fromText(options_.requirement);
    if (!parsed) throw std::runtime_error("malformed requirement: " + options_.requirement);
    const TKSData blob = parsed->blob();
    append32(content, 1);
    append32(content, static_cast<std::uint32_t>(codesign::RequirementType::designated));
    append32(content, 20);
    content.insert(content.end(), blob.begin(), blob.end());
    return makeBlob(magic::kRequirements, content);
  }

  TKSData topDirectory() const {
    TKSData list;
    append32(list, slot::kCodeDirectory);
    for (std::uint32_t number = 1; number <= slot::kLastSpecial; ++number) {
      if (components_.contains(number) || number == slot::kTopDirectory) append32(list, number);
    }
    for (std::uint32_t i = 1; i < options_.hashTypes.size(); ++i) append32(list, slot::kFirstAlternate + i - 1);
    append32(list, slot::kSignature);
    return list;
  }

  /// The directories for some code, primary one first.
  std::vector<SignedDirectory> directories(codesign::Bytes code, std::uint8_t pageSizeLog, const TKSData* infoPlist) {
    DirectoryPlan plan;
    plan.identifier = identifier();
    plan.team = team();
    plan.flags = options_.flags;
    if (options_.identity == nullptr) plan.flags |= 0x2;
    if (options_.linkerSigned) plan.flags |= 0x20000;
    plan.version = options_.version;
    plan.runtimeVersion = options_.runtimeVersion;
    plan.pageSizeLog = pageSizeLog;
    plan.components = components_;
    if (infoPlist != nullptr) plan.components[slot::kInfoPlist] = *infoPlist;
    std::vector<SignedDirectory> result;
    for (const codesign::HashType type : options_.hashTypes) {
      plan.hashType = type;
      result.push_back({type, makeDirectory(plan, code)});
    }
    return result;
  }

  TKSData message(const std::vector<SignedDirectory>& directories) const {
    if (options_.identity == nullptr) return {};
    return signDirectories(*options_.identity, directories,
                           {.hashList = options_.hashAgility,
                            .hashSet = options_.hashAgility,
                            .signingTime = options_.signingTime,
                            .timeStamp = options_.timeStamp});
  }

  // Mach-O: into the image.

  void signImages() {
    bool universal = false;
    std::vector<TKSData> images = imagesOf(readFile(layout_.executable), universal);
    for (std::size_t i = 0; i < images.size(); ++i) {
      const TKSData original = images[i];
      std::optional<TKSData> infoPlist = embeddedInfoPlist(i);
      const std::size_t room = signatureRoom(original.size());
      images[i] = embedSignature(original, room, [&](const TKSData& code) {
        return superBlob(directories(code, options_.pageSizeLog, infoPlist ? &*infoPlist : nullptr));
      });
    }
    const auto permissions = fs::status(layout_.executable).permissions();
    writeFile(layout_.executable, universal ? makeUniversal(images) : images.front());
    fs::permissions(layout_.executable, permissions);
  }

  std::optional<TKSData> embeddedInfoPlist(std::size_t index) const {
    if (layout_.isBundle() || options_.linkerSigned) return std::nullopt;
    // Slices are sorted by processor there, and stand in the file's order here.
    std::vector<codesign::Slice> slices = layout_.image->slices();
    std::ranges::sort(slices, {}, &codesign::Slice::offset);
    const codesign::ImageLayout image = layout_.image->layout(slices[index]);
    if (!image.infoPlist) return std::nullopt;
    return layout_.image->fromStartOf(slices[index])
        .part(image.infoPlist->offset, image.infoPlist->size)
        .all(kLargestFile);
  }

  std::size_t signatureRoom(std::size_t imageSize) const {
    std::size_t room = 1000 + (options_.identity == nullptr ? 0 : kMessageRoom);
    for (const auto& [number, content] : components_) room += content.size() + 64;
    const std::size_t pages = options_.pageSizeLog == 0 ? 1 : (imageSize >> options_.pageSizeLog) + 2;
    for (const codesign::HashType type : options_.hashTypes) room += 600 + pages * codesign::hashSize(type);
    return room;
  }

  TKSData superBlob(const std::vector<SignedDirectory>& directories) const {
    std::map<std::uint32_t, TKSData> blobs;
    for (const auto& [number, content] : components_) {
      if (number == slot::kInfoPlist || number == slot::kResources) continue;
      blobs[number] = codesign::isBlobItself(number) ? content : makeBlob(magic::kWrapper, content);
    }
    blobs[slot::kCodeDirectory] = directories.front().blob;
    for (std::uint32_t i = 1; i < directories.size(); ++i) blobs[slot::kFirstAlternate + i - 1] = directories[i].blob;
    if (!options_.linkerSigned) blobs[slot::kSignature] = makeBlob(magic::kWrapper, message(directories));
    return makeSuperBlob(blobs);
  }

  // Anything else: beside the file.

  void signWhole() {
    const TKSData code = readFile(layout_.executable);
    const std::vector<SignedDirectory> all = directories(code, 0, nullptr);
    std::map<std::string, TKSData> parts;
    for (const auto& [number, content] : components_) {
      if (number != slot::kInfoPlist && number != slot::kResources) parts[nameOf(number)] = content;
    }
    parts[nameOf(slot::kCodeDirectory)] = all.front().blob;
    for (std::uint32_t i = 1; i < all.size(); ++i) parts[nameOf(slot::kFirstAlternate + i - 1)] = all[i].blob;
    if (!options_.linkerSigned) parts[nameOf(slot::kSignature)] = message(all);
    store(parts);
  }

  static std::string nameOf(std::uint32_t number) { return std::string(codesign::componentName(number)); }

  void store(const std::map<std::string, TKSData>& parts) const {
    const bool automatic = options_.storage == Storage::automatic;
    if (options_.storage == Storage::folder || (automatic && layout_.isBundle())) {
      fs::create_directories(signatureFolder());
      for (const auto& [name, content] : parts) writeFile(signatureFolder() + "/" + name, content);
    } else if (options_.storage == Storage::sideCar || (!storeAttributes(parts) && automatic)) {
      storeSideCar(parts);
    }
  }

  /// False when the volume has no room for them.
  bool storeAttributes(const std::map<std::string, TKSData>& parts) const {
    for (const auto& [name, content] : parts) {
      const std::string attribute = std::string(codesign::kAttributePrefix) + name;
      TKSError error;
      if (posix::setExtendedAttribute(layout_.executable, attribute, content, &error)) continue;
      for (const auto& [other, unused] : parts) {
        posix::removeExtendedAttribute(layout_.executable, std::string(codesign::kAttributePrefix) + other);
      }
      if (options_.storage == Storage::attributes) throw std::runtime_error(error.localizedDescription);
      return false;
    }
    return true;
  }

  void storeSideCar(const std::map<std::string, TKSData>& parts) const {
    formats::AppleDouble sideCar;
    for (const auto& [name, content] : parts) {
      sideCar.attributes.set(std::string(codesign::kAttributePrefix) + name, content);
    }
    const std::optional<TKSData> content = formats::serializeAppleDouble(sideCar);
    if (!content) throw std::runtime_error("the signature does not fit a side-car");
    writeFile(*formats::sideCarPath(layout_.executable), *content);
  }

  const codesign::CodeLayout layout_;
  const SigningOptions& options_;
  std::map<std::uint32_t, TKSData> components_;
};

}  // namespace

void sign(const std::string& path, const SigningOptions& options) { Signing(path, options).run(); }

}  // namespace tks::signing

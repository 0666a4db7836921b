#include "tools/signing/mach_o_writer.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "platform/linux/signatures/byte_source.h"
#include "tools/signing/directory_writer.h"

namespace tks::signing {
namespace {

constexpr std::uint32_t kUniversalMagic = 0xcafebabe;
constexpr std::uint32_t kSegment64 = 0x19;
constexpr std::uint32_t kSegment32 = 0x1;
constexpr std::uint32_t kCodeSignature = 0x1d;
constexpr std::size_t kHeader = 32;
constexpr std::size_t kSliceAlignment = 1u << 14;

std::size_t aligned(std::size_t size, std::size_t unit) { return (size + unit - 1) / unit * unit; }

std::uint32_t little32(const TKSData& data, std::size_t at) {
  return std::uint32_t{data.at(at)} | std::uint32_t{data.at(at + 1)} << 8 | std::uint32_t{data.at(at + 2)} << 16 |
         std::uint32_t{data.at(at + 3)} << 24;
}

void storeLittle(TKSData& data, std::size_t at, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) data.at(at + i) = static_cast<std::uint8_t>(value >> 8 * i);
}

void appendLittle(TKSData& data, std::uint64_t value, std::size_t size) {
  data.resize(data.size() + size);
  storeLittle(data, data.size() - size, value, size);
}

void appendName(TKSData& data, std::string_view name) {
  data.insert(data.end(), name.begin(), name.end());
  data.resize(data.size() + 16 - name.size());
}

void appendSegment(TKSData& out, std::string_view name, std::size_t offset, std::size_t size, std::uint32_t sections) {
  appendLittle(out, kSegment64, 4);
  appendLittle(out, 72 + 80 * sections, 4);
  appendName(out, name);
  appendLittle(out, 0x100000000 + offset, 8);
  appendLittle(out, aligned(size, kSliceAlignment), 8);
  appendLittle(out, offset, 8);
  appendLittle(out, size, 8);
  appendLittle(out, 5, 4);
  appendLittle(out, 5, 4);
  appendLittle(out, sections, 4);
  appendLittle(out, 0, 4);
}

/// What of an image's load commands a signature touches.
struct Commands {
  std::size_t header = kHeader;
  std::size_t end = 0;
  std::optional<std::size_t> signature;
  std::optional<std::size_t> linkEdit;
  bool is64 = true;
};

Commands readCommands(const TKSData& image) {
  Commands found;
  const std::uint32_t magic = little32(image, 0);
  if (magic != 0xfeedfacf && magic != 0xfeedface) throw std::runtime_error("not a little-endian Mach-O image");
  found.is64 = magic == 0xfeedfacf;
  found.header = found.is64 ? 32 : 28;
  found.end = found.header + little32(image, 20);
  for (std::size_t at = found.header; at + 8 <= found.end; at += std::max(little32(image, at + 4), 8u)) {
    const std::uint32_t kind = little32(image, at);
    if (kind == kCodeSignature && !found.signature) found.signature = at;
    if ((kind == kSegment64 || kind == kSegment32) &&
        std::strncmp(reinterpret_cast<const char*>(&image[at + 8]), "__LINKEDIT", 16) == 0) {
      found.linkEdit = at;
    }
  }
  return found;
}

void addCommand(TKSData& image, Commands& commands) {
  for (std::size_t i = 0; i < 16; ++i) {
    if (image.at(commands.end + i) != 0) throw std::runtime_error("no room for another load command");
  }
  commands.signature = commands.end;
  storeLittle(image, commands.end, kCodeSignature, 4);
  storeLittle(image, commands.end + 4, 16, 4);
  storeLittle(image, 16, little32(image, 16) + 1, 4);
  storeLittle(image, 20, little32(image, 20) + 16, 4);
}

}  // namespace

TKSData makeImage(const ImagePlan& plan) {
  const std::uint32_t sections = plan.infoPlist.empty() ? 0 : 1;
  const std::size_t textSize = aligned(std::max<std::size_t>(plan.size, 8192), 4096);
  constexpr std::size_t kLinkEdit = 64;
  constexpr std::size_t kInfoOffset = 2048;
  if (plan.infoPlist.size() > 2048) throw std::runtime_error("the Info.plist is too large for the image");
  TKSData image;
  appendLittle(image, 0xfeedfacf, 4);
  appendLittle(image, plan.type, 4);
  appendLittle(image, plan.subtype, 4);
  appendLittle(image, plan.fileType, 4);
  appendLittle(image, 2, 4);
  appendLittle(image, 2 * 72 + 80 * sections, 4);
  appendLittle(image, 0x85, 4);
  appendLittle(image, 0, 4);
  appendSegment(image, "__TEXT", 0, textSize, sections);
  if (sections != 0) {
    appendName(image, "__info_plist");
    appendName(image, "__TEXT");
    appendLittle(image, 0x100000000 + kInfoOffset, 8);
    appendLittle(image, plan.infoPlist.size(), 8);
    appendLittle(image, kInfoOffset, 4);
    image.resize(image.size() + 28);
  }
  appendSegment(image, "__LINKEDIT", textSize, kLinkEdit, 0);
  image.resize(textSize + kLinkEdit);
  std::ranges::copy(plan.infoPlist, image.begin() + kInfoOffset);
  for (std::size_t i = 4096; i < image.size(); ++i) image[i] = static_cast<std::uint8_t>(i * 31 + plan.type);
  return image;
}

TKSData makeUniversal(const std::vector<TKSData>& images) {
  TKSData file;
  append32(file, kUniversalMagic);
  append32(file, static_cast<std::uint32_t>(images.size()));
  std::size_t offset = kSliceAlignment;
  for (const TKSData& image : images) {
    append32(file, little32(image, 4));
    append32(file, little32(image, 8));
    append32(file, static_cast<std::uint32_t>(offset));
    append32(file, static_cast<std::uint32_t>(image.size()));
    append32(file, 14);
    offset = aligned(offset + image.size(), kSliceAlignment);
  }
  for (const TKSData& image : images) {
    file.resize(aligned(file.size(), kSliceAlignment));
    file.insert(file.end(), image.begin(), image.end());
  }
  return file;
}

TKSData embedSignature(TKSData image, std::size_t signatureSize, const SignImage& sign) {
  Commands commands = readCommands(image);
  if (commands.signature) {
    image.resize(std::min<std::size_t>(little32(image, *commands.signature + 8), image.size()));
  } else {
    addCommand(image, commands);
  }
  image.resize(aligned(image.size(), 16));
  const std::size_t limit = image.size();
  signatureSize = aligned(signatureSize, 16);
  // Both numbers are hashed with everything else, so they are settled first.
  storeLittle(image, *commands.signature + 8, limit, 4);
  storeLittle(image, *commands.signature + 12, signatureSize, 4);
  if (commands.linkEdit) {
    const std::size_t width = commands.is64 ? 8 : 4;
    const std::size_t fields = *commands.linkEdit + 24;
    const std::size_t start = little32(image, fields + 2 * width);
    const std::size_t size = limit + signatureSize - start;
    storeLittle(image, fields + width, aligned(size, kSliceAlignment), width);
    storeLittle(image, fields + 3 * width, size, width);
  }
  const TKSData signature = sign(image);
  if (signature.size() > signatureSize) throw std::runtime_error("the signature is larger than its room");
  image.insert(image.end(), signature.begin(), signature.end());
  image.resize(limit + signatureSize);
  return image;
}

std::vector<TKSData> imagesOf(const TKSData& file, bool& universal) {
  universal = file.size() >= 8 && codesign::big32(file.data()) == kUniversalMagic;
  if (!universal) return {file};
  std::vector<TKSData> images;
  for (std::uint32_t i = 0; i < codesign::big32(&file[4]); ++i) {
    const std::size_t record = 8 + 20 * std::size_t{i};
    if (record + 20 > file.size()) throw std::runtime_error("malformed universal file");
    const std::size_t offset = codesign::big32(&file[record + 8]);
    const std::size_t size = codesign::big32(&file[record + 12]);
    if (offset > file.size() || size > file.size() - offset) throw std::runtime_error("malformed universal file");
    const auto start = file.begin() + static_cast<std::ptrdiff_t>(offset);
    images.emplace_back(start, start + static_cast<std::ptrdiff_t>(size));
  }
  return images;
}

}  // namespace tks::signing

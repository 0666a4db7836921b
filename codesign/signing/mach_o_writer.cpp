#include "codesign/signing/mach_o_writer.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "codesign/container/byte_source.h"
#include "codesign/signing/directory_writer.h"

namespace tks::signing {
namespace {

/// The segment's name, with what ends it.
constexpr std::string_view kLinkEdit("__LINKEDIT\0", 11);
constexpr std::uint32_t kUniversalMagic = 0xcafebabe;
constexpr std::uint32_t kSegment64 = 0x19;
constexpr std::uint32_t kSegment32 = 0x1;
constexpr std::uint32_t kCodeSignature = 0x1d;
constexpr std::uint32_t kMagic32 = 0xfeedface;
constexpr std::uint32_t kMagic64 = 0xfeedfacf;
constexpr std::size_t kBase = 0x10000000;
constexpr std::size_t kSliceAlignment = 1u << 14;

std::size_t aligned(std::size_t size, std::size_t unit) { return (size + unit - 1) / unit * unit; }

bool isBigEndian(const TKSData& image) { return image.at(0) == 0xfe; }

/// Numbers in an image's own byte order.
std::uint32_t number(const TKSData& image, std::size_t at) {
  const std::uint32_t value = codesign::big32(&image.at(at));
  return isBigEndian(image) ? value : __builtin_bswap32(value);
}

void store(TKSData& image, std::size_t at, std::uint64_t value, std::size_t size) {
  const bool big = isBigEndian(image);
  for (std::size_t i = 0; i < size; ++i) {
    image.at(big ? at + size - 1 - i : at + i) = static_cast<std::uint8_t>(value >> 8 * i);
  }
}

void append(TKSData& image, std::uint64_t value, std::size_t size) {
  image.resize(image.size() + size);
  store(image, image.size() - size, value, size);
}

void appendName(TKSData& data, std::string_view name) {
  data.insert(data.end(), name.begin(), name.end());
  data.resize(data.size() + 16 - name.size());
}

std::size_t segmentSize(bool is64) { return is64 ? 72 : 56; }
std::size_t sectionSize(bool is64) { return is64 ? 80 : 68; }

void appendSegment(TKSData& out, std::string_view name, std::size_t offset, std::size_t size, std::uint32_t sections,
                   bool is64) {
  const std::size_t width = is64 ? 8 : 4;
  append(out, is64 ? kSegment64 : kSegment32, 4);
  append(out, segmentSize(is64) + sectionSize(is64) * sections, 4);
  appendName(out, name);
  append(out, kBase + offset, width);
  append(out, aligned(size, kSliceAlignment), width);
  append(out, offset, width);
  append(out, size, width);
  append(out, 5, 4);
  append(out, 5, 4);
  append(out, sections, 4);
  append(out, 0, 4);
}

/// What of an image's load commands a signature touches.
struct Commands {
  std::size_t header = 0;
  std::size_t end = 0;
  std::optional<std::size_t> signature;
  std::optional<std::size_t> linkEdit;
  bool is64 = true;
};

Commands readCommands(const TKSData& image) {
  Commands found;
  const std::uint32_t magic = number(image, 0);
  if (magic != kMagic64 && magic != kMagic32) throw std::runtime_error("not a Mach-O image");
  found.is64 = magic == kMagic64;
  found.header = found.is64 ? 32 : 28;
  found.end = found.header + number(image, 20);
  for (std::size_t at = found.header; at + 8 <= found.end; at += std::max(number(image, at + 4), 8u)) {
    const std::uint32_t kind = number(image, at);
    if (kind == kCodeSignature && !found.signature) found.signature = at;
    if ((kind == kSegment64 || kind == kSegment32) &&
        std::string_view(reinterpret_cast<const char*>(&image[at + 8]), kLinkEdit.size()) == kLinkEdit) {
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
  store(image, commands.end, kCodeSignature, 4);
  store(image, commands.end + 4, 16, 4);
  store(image, 16, number(image, 16) + 1, 4);
  store(image, 20, number(image, 20) + 16, 4);
}

}  // namespace

TKSData makeImage(const ImagePlan& plan) {
  const std::uint32_t sections = plan.infoPlist.empty() ? 0 : 1;
  const std::size_t textSize = aligned(std::max<std::size_t>(plan.size, 8192), 4096);
  constexpr std::size_t kLinkEditSize = 64;
  constexpr std::size_t kInfoOffset = 2048;
  if (plan.infoPlist.size() > 2048) throw std::runtime_error("the Info.plist is too large for the image");
  TKSData image(4, plan.bigEndian ? 0xfe : 0);
  store(image, 0, plan.is64 ? kMagic64 : kMagic32, 4);
  append(image, plan.type, 4);
  append(image, plan.subtype, 4);
  append(image, plan.fileType, 4);
  append(image, 2, 4);
  append(image, 2 * segmentSize(plan.is64) + sectionSize(plan.is64) * sections, 4);
  append(image, 0x85, 4);
  if (plan.is64) append(image, 0, 4);
  appendSegment(image, "__TEXT", 0, textSize, sections, plan.is64);
  if (sections != 0) {
    appendName(image, "__info_plist");
    appendName(image, "__TEXT");
    append(image, kBase + kInfoOffset, plan.is64 ? 8 : 4);
    append(image, plan.infoPlist.size(), plan.is64 ? 8 : 4);
    append(image, kInfoOffset, 4);
    image.resize(image.size() + (plan.is64 ? 28 : 24));
  }
  appendSegment(image, "__LINKEDIT", textSize, kLinkEditSize, 0, plan.is64);
  image.resize(textSize + kLinkEditSize);
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
    append32(file, number(image, 4));
    append32(file, number(image, 8));
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
    image.resize(std::min<std::size_t>(number(image, *commands.signature + 8), image.size()));
  } else {
    addCommand(image, commands);
  }
  image.resize(aligned(image.size(), 16));
  const std::size_t limit = image.size();
  signatureSize = aligned(signatureSize, 16);
  // Both numbers are hashed with everything else, so they are settled first.
  store(image, *commands.signature + 8, limit, 4);
  store(image, *commands.signature + 12, signatureSize, 4);
  if (commands.linkEdit) {
    const std::size_t width = commands.is64 ? 8 : 4;
    const std::size_t fields = *commands.linkEdit + 24;
    const std::size_t start = number(image, fields + 2 * width);
    const std::size_t size = limit + signatureSize - start;
    store(image, fields + width, aligned(size, kSliceAlignment), width);
    store(image, fields + 3 * width, size, width);
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

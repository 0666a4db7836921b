#include "codesign/container/mach_o.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "codesign/container/status.h"

namespace tks::codesign {
namespace {

constexpr std::uint32_t kUniversalMagic = 0xcafebabe;
constexpr std::uint32_t kMagic32 = 0xfeedface;
constexpr std::uint32_t kMagic64 = 0xfeedfacf;
/// Java class files carry the universal magic too, with their version where the count stands.
constexpr std::uint32_t kMostSlices = 100;
constexpr std::size_t kRecordSize = 20;
constexpr std::size_t kHeaderSize32 = 28;
constexpr std::size_t kHeaderSize64 = 32;
constexpr std::uint32_t kFeatureBits = 0xff000000;

constexpr std::uint32_t kSegment32 = 0x1;
constexpr std::uint32_t kSegment64 = 0x19;
constexpr std::uint32_t kCodeSignature = 0x1d;

constexpr std::uint32_t kIntel32 = 7;
constexpr std::uint32_t kIntel64 = 0x01000007;
constexpr std::uint32_t kArm64 = 0x0100000c;
constexpr std::uint32_t kArm64On32 = 0x0200000c;

struct NamedArchitecture {
  Architecture architecture;
  std::string_view name;
};
constexpr NamedArchitecture kArchitectures[] = {
    {{kIntel32, 3}, "i386"},
    {{kIntel64, 3}, "x86_64"},
    {{kIntel64, 8}, "x86_64h"},
    {{kArm64, 0}, "arm64"},
    {{kArm64, 1}, "arm64v8"},
    {{kArm64, 2}, "arm64e"},
    {{kArm64On32, 1}, "arm64_32"},
    {{18, 0}, "ppc"},
    {{18, 9}, "ppc750"},
    {{18, 10}, "ppc7400"},
    {{18, 11}, "ppc7450"},
    {{18, 100}, "ppc970"},
    {{0x01000012, 0}, "ppc64"},
    {{0x01000012, 100}, "ppc970-64"},
    {{12, 6}, "armv6"},
    {{12, 9}, "armv7"},
    {{12, 11}, "armv7s"},
    {{12, 12}, "armv7k"},
};

#if defined(__aarch64__)
constexpr std::uint32_t kThisMachine = kArm64;
constexpr std::uint32_t kThisMachineSubtype = 0;
#elif defined(__x86_64__)
constexpr std::uint32_t kThisMachine = kIntel64;
constexpr std::uint32_t kThisMachineSubtype = 3;
#else
constexpr std::uint32_t kThisMachine = 0;
constexpr std::uint32_t kThisMachineSubtype = 0;
#endif

/// The header of an image.
struct Header {
  bool swapped = false;  ///< big-endian
  bool is64 = false;
  Architecture architecture;
  std::uint32_t fileType = 0;
  std::uint32_t commandsSize = 0;

  std::size_t size() const { return is64 ? kHeaderSize64 : kHeaderSize32; }
  std::uint32_t number(const std::uint8_t* at) const {
    const std::uint32_t value = big32(at);
    return swapped ? value : __builtin_bswap32(value);
  }
};

/// Nothing when there is no image.
std::optional<Header> readHeader(const File& file, std::uint64_t offset) {
  std::array<std::uint8_t, kHeaderSize32> raw{};
  if (file.read(offset, raw) != raw.size()) return std::nullopt;
  Header header;
  const std::uint32_t magic = big32(raw.data());
  header.swapped = magic == kMagic32 || magic == kMagic64;
  const std::uint32_t own = header.number(raw.data());
  if (own != kMagic32 && own != kMagic64) return std::nullopt;
  header.is64 = own == kMagic64;
  header.architecture = {header.number(&raw[4]), header.number(&raw[8]) & ~kFeatureBits};
  header.fileType = header.number(&raw[12]);
  header.commandsSize = header.number(&raw[20]);
  return header;
}

/// Executables, preloads, libraries, dynamic linkers, bundles and kernel extensions can be signed; object files and the
/// rest are plain files.
bool isCode(const std::optional<Header>& header) {
  constexpr std::uint32_t kCodeTypes[] = {2, 5, 6, 7, 8, 11};
  return header && std::ranges::find(kCodeTypes, header->fileType) != std::end(kCodeTypes);
}

Slice sliceAt(const std::uint8_t* record) {
  return {{big32(record), big32(record + 4) & ~kFeatureBits}, big32(record + 8), big32(record + 12)};
}

/// Reads load commands in pieces, since their size is whatever the file says.
class Commands {
 public:
  Commands(const File& file, std::uint64_t start, std::uint64_t size) : file_(file), start_(start), size_(size) {}

  std::uint64_t size() const { return size_; }
  /// `count` bytes at an offset; the pointer holds until the next call. A null pointer when the commands end first.
  const std::uint8_t* at(std::uint64_t offset, std::size_t count) {
    if (offset > size_ || count > size_ - offset) return nullptr;
    if (offset < windowStart_ || offset + count > windowStart_ + windowSize_) {
      windowStart_ = offset;
      windowSize_ = file_.read(
          start_ + offset,
          std::span(window_).first(static_cast<std::size_t>(std::min<std::uint64_t>(window_.size(), size_ - offset))));
    }
    return count <= windowSize_ ? window_.data() + (offset - windowStart_) : nullptr;
  }

 private:
  const File& file_;
  std::uint64_t start_;
  std::uint64_t size_;
  std::vector<std::uint8_t> window_ = std::vector<std::uint8_t>(std::size_t{16} * 1024);
  std::uint64_t windowStart_ = 0;
  std::size_t windowSize_ = 0;
};

bool isNamed(const std::uint8_t* field, std::string_view name) {
  const auto* text = reinterpret_cast<const char*>(field);
  return std::string_view(text, ::strnlen(text, 16)) == name;
}

/// Section __info_plist of segment __TEXT, when this segment has it.
std::optional<ImageLayout::Range> findInfoPlist(const Header& header, Commands& commands, std::uint64_t command,
                                                std::uint64_t commandSize) {
  const std::size_t segmentSize = header.is64 ? 72 : 56;
  const std::size_t sectionSize = header.is64 ? 80 : 68;
  if (commandSize < segmentSize) return std::nullopt;
  const std::uint8_t* segment = commands.at(command, segmentSize);
  if (segment == nullptr || !isNamed(segment + 8, "__TEXT")) return std::nullopt;
  const std::uint32_t count = header.number(segment + (header.is64 ? 64 : 48));
  const std::uint64_t room = (commandSize - segmentSize) / sectionSize;
  for (std::uint64_t i = 0; i < std::min<std::uint64_t>(count, room); ++i) {
    const std::uint8_t* section = commands.at(command + segmentSize + i * sectionSize, sectionSize);
    if (section == nullptr) return std::nullopt;
    if (!isNamed(section, "__info_plist")) continue;
    if (!header.is64) return ImageLayout::Range{header.number(section + 40), header.number(section + 36)};
    const std::uint64_t low = header.number(section + (header.swapped ? 44 : 40));
    const std::uint64_t high = header.number(section + (header.swapped ? 40 : 44));
    return ImageLayout::Range{header.number(section + 48), high << 32 | low};
  }
  return std::nullopt;
}

}  // namespace

std::string Architecture::name() const {
  for (const NamedArchitecture& known : kArchitectures) {
    if (known.architecture == *this) return std::string(known.name);
  }
  return "(" + std::to_string(type) + ":" + std::to_string(subtype) + ")";
}

std::optional<MachO> MachO::open(const std::shared_ptr<const File>& file) {
  std::array<std::uint8_t, 8 + kRecordSize> start{};
  if (file->read(0, start) != start.size()) return std::nullopt;
  MachO result(file);
  if (big32(start.data()) != kUniversalMagic) {
    const std::optional<Header> header = readHeader(*file, 0);
    if (!isCode(header)) return std::nullopt;
    result.slices_ = {{header->architecture, 0, file->size()}};
    return result;
  }
  // The first slice decides what the file is.
  if (!isCode(readHeader(*file, sliceAt(&start[8]).offset))) return std::nullopt;
  result.universal_ = true;
  result.readRecords(big32(&start[4]));
  return result;
}

void MachO::readRecords(std::uint32_t count) {
  if (count == 0 || count > kMostSlices) fail(status::kBadObjectFormat);
  // One record more than announced: old systems hid an image after the last one, for newer systems only.
  std::vector<std::uint8_t> raw((std::size_t{count} + 1) * kRecordSize);
  raw.resize(file_->read(8, raw) / kRecordSize * kRecordSize);
  if (raw.size() < count * kRecordSize) fail(status::kBadObjectFormat);
  for (std::size_t i = 0; i < count; ++i) slices_.push_back(sliceAt(&raw[i * kRecordSize]));
  if (raw.size() > count * kRecordSize) {
    const Slice hidden = sliceAt(&raw[count * kRecordSize]);
    if (hidden.architecture.type == kArm64) slices_.push_back(hidden);
  }

  // Equal choices go to the one that stands first in the file.
  std::size_t best = 0;
  int bestRank = -1;
  for (std::size_t i = 0; i < slices_.size(); ++i) {
    const Architecture& architecture = slices_[i].architecture;
    const int rank = architecture.type != kThisMachine ? 0 : architecture.subtype == kThisMachineSubtype ? 2 : 1;
    if (rank > bestRank) {
      best = i;
      bestRank = rank;
    }
  }
  const std::uint64_t bestOffset = slices_[best].offset;

  std::vector<std::uint64_t> offsets;
  for (const Slice& slice : slices_) offsets.push_back(slice.offset);
  std::ranges::sort(offsets);
  if (std::ranges::adjacent_find(offsets) != offsets.end()) fail(status::kBadObjectFormat);

  std::ranges::stable_sort(
      slices_, {}, [](const Slice& slice) { return std::pair(slice.architecture.type, slice.architecture.subtype); });
  const auto chosen = std::ranges::find(slices_, bestOffset, &Slice::offset);
  chosen_ = static_cast<std::size_t>(chosen - slices_.begin());
}

ImageLayout MachO::layout(const Slice& slice) const {
  const std::optional<Header> header = readHeader(*file_, slice.offset);
  if (!header || header->commandsSize > slice.size || header->size() > slice.size - header->commandsSize) {
    fail(status::kBadObjectFormat);
  }
  Commands commands(*file_, slice.offset + header->size(), header->commandsSize);
  ImageLayout layout;
  for (std::uint64_t offset = 0; offset < commands.size();) {
    const std::uint8_t* command = commands.at(offset, 8);
    if (command == nullptr) fail(status::kBadObjectFormat);
    const std::uint32_t kind = header->number(command);
    const std::uint32_t size = header->number(command + 4);
    if (size < 8 || size > commands.size() - offset) fail(status::kBadObjectFormat);
    if (kind == kCodeSignature && !layout.signature) {
      const std::uint8_t* data = size >= 16 ? commands.at(offset, 16) : nullptr;
      if (data == nullptr) fail(status::kBadObjectFormat);
      layout.signature = ImageLayout::Range{header->number(data + 8), header->number(data + 12)};
    } else if (kind == (header->is64 ? kSegment64 : kSegment32) && !layout.infoPlist) {
      layout.infoPlist = findInfoPlist(*header, commands, offset, size);
    }
    offset += size;
  }
  return layout;
}

ByteSource MachO::fromStartOf(const Slice& slice) const { return ByteSource(file_).part(slice.offset, file_->size()); }

std::string MachO::format() const {
  if (!universal_) return "Mach-O thin (" + slices_.front().architecture.name() + ")";
  std::string names;
  for (const Slice& slice : slices_) names.append(names.empty() ? "" : " ").append(slice.architecture.name());
  return "Mach-O universal (" + names + ")";
}

}  // namespace tks::codesign

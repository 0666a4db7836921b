#include "codesign/container/code_directory.h"

#include <algorithm>
#include <array>
#include <utility>

#include "codesign/container/status.h"
#include "codesign/container/super_blob.h"

namespace tks::codesign {
namespace {

constexpr std::uint32_t kEarliestVersion = 0x20001;
constexpr std::uint32_t kLatestVersion = 0x2f000;
constexpr std::uint32_t kHasScatter = 0x20100;
constexpr std::uint32_t kHasTeam = 0x20200;
constexpr std::uint32_t kHasLongLimit = 0x20300;
constexpr std::uint32_t kHasExecutableSegment = 0x20400;
constexpr std::uint32_t kHasRuntime = 0x20500;

constexpr std::size_t kLargestHeader = 96;
constexpr std::size_t kScatterEntry = 24;
/// Identifiers have some dozens of bytes.
constexpr std::size_t kLongestText = std::size_t{64} * 1024;

/// Bytes that the fields of a version take.
std::size_t headerSize(std::uint32_t version) {
  if (version >= kHasRuntime) return 96;
  if (version >= kHasExecutableSegment) return 88;
  if (version >= kHasLongLimit) return 64;
  if (version >= kHasTeam) return 52;
  if (version >= kHasScatter) return 48;
  return 44;
}

}  // namespace

CodeDirectory::CodeDirectory(ByteSource blob) : blob_(std::move(blob)) {
  std::array<std::uint8_t, kLargestHeader> raw{};
  const std::size_t count = blob_.read(0, raw);
  if (count < headerSize(0) || big32(raw.data()) != magic::kCodeDirectory || big32(&raw[4]) != blob_.size()) {
    fail(status::kSignatureFailed);
  }
  version_ = big32(&raw[8]);
  if (version_ < kEarliestVersion || version_ > kLatestVersion) fail(status::kSignatureUnsupported);
  if (count < headerSize(version_)) fail(status::kSignatureFailed);

  flags_ = big32(&raw[12]);
  hashOffset_ = big32(&raw[16]);
  specialSlots_ = big32(&raw[24]);
  codeSlots_ = big32(&raw[28]);
  limit_ = big32(&raw[32]);
  hashSize_ = raw[36];
  hashTypeNumber_ = raw[37];
  platform_ = raw[38];
  if (version_ >= kHasLongLimit && big64(&raw[56]) != 0) limit_ = big64(&raw[56]);
  if (version_ >= kHasRuntime) runtimeVersion_ = big32(&raw[88]);

  identifier_ = textAt(big32(&raw[20]));
  if (version_ >= kHasTeam && big32(&raw[48]) != 0) team_ = textAt(big32(&raw[48]));
  checkHashes();
  if (version_ >= kHasScatter && big32(&raw[44]) != 0) checkScatter(big32(&raw[44]));
  checkPages(raw[39]);
  pageSize_ = raw[39] == 0 ? 0 : std::uint64_t{1} << raw[39];
}

/// The NUL-terminated text at an offset.
std::string CodeDirectory::textAt(std::uint32_t offset) const {
  std::string text;
  while (text.size() < kLongestText) {
    std::array<std::uint8_t, 256> piece;
    const std::size_t count = blob_.read(std::uint64_t{offset} + text.size(), piece);
    const auto end = std::find(piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(count), 0);
    text.append(piece.begin(), end);
    if (end != piece.begin() + static_cast<std::ptrdiff_t>(count)) return text;
    if (count < piece.size()) break;
  }
  fail(status::kSignatureFailed);
}

void CodeDirectory::checkHashes() const {
  const std::uint64_t before = std::uint64_t{hashSize_} * specialSlots_;
  const std::uint64_t after = std::uint64_t{hashSize_} * codeSlots_;
  const std::optional<HashType> type = hashTypeOf(hashTypeNumber_);
  if (before > hashOffset_ || hashOffset_ > blob_.size() || after > blob_.size() - hashOffset_ ||
      (type && hashSize_ != hashSize(*type))) {
    fail(status::kSignatureFailed);
  }
}

/// Scatter entries name runs of pages; the last one counts none. They play no part in checking pages.
void CodeDirectory::checkScatter(std::uint32_t offset) const {
  std::uint64_t pages = 0;
  for (std::uint64_t at = offset;; at += kScatterEntry) {
    std::array<std::uint8_t, kScatterEntry> entry{};
    if (!blob_.readExactly(at, entry)) fail(status::kSignatureFailed);
    const std::uint32_t count = big32(entry.data());
    if (count == 0) break;
    pages += count;
    if (pages > codeSlots_) fail(status::kSignatureFailed);
  }
}

/// The pages cover everything up to the limit, and nothing more.
void CodeDirectory::checkPages(std::uint8_t pageSizeLog) const {
  if (pageSizeLog >= 64) fail(status::kSignatureFailed);
  if (pageSizeLog > 0 && limit_ == 0) fail(status::kSignatureFailed);
  const std::uint64_t covered = limit_ == 0 ? 0 : pageSizeLog == 0 ? 1 : ((limit_ - 1) >> pageSizeLog) + 1;
  if (covered != codeSlots_) fail(status::kSignatureFailed);
}

std::optional<Digest> CodeDirectory::specialHash(std::uint32_t slot) const {
  if (slot == 0 || slot > specialSlots_ || hashSize_ > sizeof(Digest::storage)) return std::nullopt;
  Digest digest;
  digest.size = hashSize_;
  if (!blob_.readExactly(hashOffset_ - std::uint64_t{slot} * hashSize_, std::span(digest.storage).first(hashSize_))) {
    fail(status::kSignatureFailed);
  }
  const Bytes bytes = digest.bytes();
  if (std::ranges::all_of(bytes, [](std::uint8_t byte) { return byte == 0; })) return std::nullopt;
  return digest;
}

bool CodeDirectory::readCodeHashes(std::uint32_t first, std::span<std::uint8_t> hashes) const {
  const std::uint64_t count = hashes.size() / hashSize_;
  if (first > codeSlots_ || count > codeSlots_ - first) return false;
  return blob_.readExactly(hashOffset_ + std::uint64_t{first} * hashSize_, hashes);
}

const Digest& CodeDirectory::fullHash() const {
  if (!fullHash_) {
    const std::optional<HashType> type = hashTypeOf(hashTypeNumber_);
    if (!type) fail(status::kUnsupportedDigest);
    fullHash_ = hashOf(blob_, *type, true);
  }
  return *fullHash_;
}

TKSData CodeDirectory::cdHash() const {
  const Bytes bytes = fullHash().bytes().first(20);
  return {bytes.begin(), bytes.end()};
}

void DirectorySet::add(CodeDirectory&& directory, bool primary) {
  const std::uint8_t type = directory.hashTypeNumber();
  if (!directories_.try_emplace(type, std::move(directory)).second) fail(status::kSignatureInvalid);
  if (primary) primary_ = type;
}

void DirectorySet::choose() {
  for (const auto& [number, directory] : directories_) {
    if (const std::optional<HashType> type = hashTypeOf(number)) types_.push_back(*type);
  }
  if (types_.empty()) fail(status::kUnsupportedDigest);
  constexpr HashType kBestFirst[] = {HashType::sha384, HashType::sha256, HashType::sha256Truncated, HashType::sha1};
  best_ = *std::ranges::find_first_of(kBestFirst, types_);
}

}  // namespace tks::codesign

#include "codesign/container/super_blob.h"

#include <array>
#include <vector>

#include "codesign/container/status.h"

namespace tks::codesign {
namespace {

constexpr std::size_t kBlobHeader = 8;
constexpr std::size_t kSuperHeader = 12;
constexpr std::size_t kIndexEntry = 8;
/// Far more slots than there are.
constexpr std::uint32_t kMostEntries = 4096;

struct BlobHeader {
  std::uint32_t magic = 0;
  std::uint32_t length = 0;
};

BlobHeader blobAt(const ByteSource& source, std::uint64_t offset) {
  std::array<std::uint8_t, kBlobHeader> raw{};
  if (!source.readExactly(offset, raw)) fail(status::kSignatureInvalid);
  return {big32(raw.data()), big32(&raw[4])};
}

}  // namespace

bool isBlobItself(std::uint32_t slot) {
  switch (slot) {
    case slot::kTopDirectory:
    case slot::kRepSpecific:
    case slot::kSignature:
    case slot::kTicket:
      return false;
    default:
      return true;
  }
}

bool isBlobFor(std::uint32_t slot, const ByteSource& content) {
  std::uint32_t kind = 0;
  if (slot == slot::kRequirements) kind = magic::kRequirements;
  if (slot == slot::kEntitlements) kind = magic::kEntitlements;
  if (slot == slot::kEntitlementsDer) kind = magic::kEntitlementsDer;
  if (slot >= slot::kFirstConstraint && slot <= slot::kLastSpecial) kind = magic::kConstraint;
  std::array<std::uint8_t, kBlobHeader> header{};
  return kind != 0 && content.readExactly(0, header) && big32(header.data()) == kind &&
         big32(&header[4]) == content.size();
}

SuperBlob::SuperBlob(const ByteSource& area) {
  std::array<std::uint8_t, kSuperHeader> header{};
  if (!area.readExactly(0, header) || big32(header.data()) != magic::kEmbeddedSignature) {
    fail(status::kSignatureInvalid);
  }
  const std::uint32_t length = big32(&header[4]);
  const std::uint32_t count = big32(&header[8]);
  if (length > area.size() || count > kMostEntries || kSuperHeader + std::uint64_t{kIndexEntry} * count > length) {
    fail(status::kSignatureInvalid);
  }
  super_ = area.part(0, length);

  std::vector<std::uint8_t> index(kIndexEntry * count);
  if (!super_.readExactly(kSuperHeader, index)) fail(status::kSignatureInvalid);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t slot = big32(&index[i * kIndexEntry]);
    const std::uint32_t offset = big32(&index[i * kIndexEntry + 4]);
    if (offset != 0) {
      if (offset < kSuperHeader + index.size() || offset > length || length - offset < kBlobHeader) {
        fail(status::kSignatureInvalid);
      }
      const std::uint32_t blobLength = blobAt(super_, offset).length;
      if (blobLength < kBlobHeader || blobLength > length - offset) fail(status::kSignatureInvalid);
    }
    offsets_.try_emplace(slot, offset);  // of two entries for one slot the first counts
  }
}

std::optional<ByteSource> SuperBlob::component(std::uint32_t slot) const {
  const auto entry = offsets_.find(slot);
  if (entry == offsets_.end() || entry->second == 0) return std::nullopt;
  const BlobHeader blob = blobAt(super_, entry->second);
  if (blob.length < kBlobHeader) fail(status::kSignatureInvalid);  // it has changed since the index was read
  const ByteSource whole = super_.part(entry->second, blob.length);
  if (isBlobItself(slot)) return whole;
  if (blob.magic != magic::kWrapper) fail(status::kSignatureInvalid);
  return whole.part(kBlobHeader, blob.length - kBlobHeader);
}

}  // namespace tks::codesign

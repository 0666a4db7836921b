#include "codesign/signing/directory_writer.h"

#include <algorithm>

#include "codesign/container/super_blob.h"

namespace tks::signing {
namespace {

using codesign::Bytes;
using codesign::Hasher;

std::size_t headerSize(std::uint32_t version) {
  if (version >= 0x20500) return 96;
  if (version >= 0x20400) return 88;
  if (version >= 0x20300) return 64;
  if (version >= 0x20200) return 52;
  return version >= 0x20100 ? 48 : 44;
}

void appendDigest(TKSData& out, const codesign::Digest& digest) {
  out.insert(out.end(), digest.bytes().begin(), digest.bytes().end());
}

/// From the highest special slot down to the first, then the pages.
TKSData makeHashes(const DirectoryPlan& plan, Bytes code) {
  Hasher hasher(plan.hashType);
  TKSData hashes;
  for (std::uint32_t slot = plan.components.empty() ? 0 : plan.components.rbegin()->first; slot >= 1; --slot) {
    const auto component = plan.components.find(slot);
    if (component == plan.components.end()) {
      hashes.resize(hashes.size() + codesign::hashSize(plan.hashType));
    } else {
      appendDigest(hashes, hasher.hash(component->second));
    }
  }
  const std::size_t pageSize = plan.pageSizeLog == 0 ? code.size() : std::size_t{1} << plan.pageSizeLog;
  for (std::size_t at = 0; at < code.size(); at += pageSize) {
    appendDigest(hashes, hasher.hash(code.subspan(at, std::min(pageSize, code.size() - at))));
  }
  return hashes;
}

}  // namespace

void append16(TKSData& out, std::uint32_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value));
}

void append32(TKSData& out, std::uint32_t value) {
  append16(out, value >> 16);
  append16(out, value);
}

void append64(TKSData& out, std::uint64_t value) {
  append32(out, static_cast<std::uint32_t>(value >> 32));
  append32(out, static_cast<std::uint32_t>(value));
}

void store32(TKSData& out, std::size_t at, std::uint32_t value) {
  TKSData bytes;
  append32(bytes, value);
  std::ranges::copy(bytes, out.begin() + static_cast<std::ptrdiff_t>(at));
}

TKSData makeBlob(std::uint32_t magic, Bytes content) {
  TKSData blob;
  append32(blob, magic);
  append32(blob, static_cast<std::uint32_t>(content.size() + 8));
  blob.insert(blob.end(), content.begin(), content.end());
  return blob;
}

TKSData makeSuperBlob(const std::map<std::uint32_t, TKSData>& blobs) {
  TKSData content;
  append32(content, static_cast<std::uint32_t>(blobs.size()));
  std::size_t offset = 12 + 8 * blobs.size();
  for (const auto& [slot, blob] : blobs) {
    append32(content, slot);
    append32(content, static_cast<std::uint32_t>(offset));
    offset += blob.size();
  }
  for (const auto& [slot, blob] : blobs) content.insert(content.end(), blob.begin(), blob.end());
  return makeBlob(codesign::magic::kEmbeddedSignature, content);
}

namespace {

/// Where the parts of a directory are.
struct Offsets {
  explicit Offsets(const DirectoryPlan& plan) {
    hasTeam = !plan.team.empty() && plan.version >= 0x20200;
    identifier = headerSize(plan.version);
    team = identifier + plan.identifier.size() + 1;
    hashes = team + (hasTeam ? plan.team.size() + 1 : 0);
  }

  bool hasTeam = false;
  std::size_t identifier = 0;
  std::size_t team = 0;
  std::size_t hashes = 0;  ///< of the special slots, which stand in front of those of the pages
};

/// The fields that exist from a version on.
void appendLaterFields(TKSData& content, const DirectoryPlan& plan, const Offsets& offsets, std::uint64_t limit) {
  if (plan.version >= 0x20100) append32(content, 0);
  if (plan.version >= 0x20200) append32(content, offsets.hasTeam ? static_cast<std::uint32_t>(offsets.team) : 0);
  if (plan.version >= 0x20300) {
    append32(content, 0);
    append64(content, limit > UINT32_MAX ? limit : 0);
  }
  if (plan.version >= 0x20400) {
    append64(content, 0);
    append64(content, limit);
    append64(content, 1);
  }
  if (plan.version >= 0x20500) {
    append32(content, plan.runtimeVersion);
    append32(content, 0);
  }
}

void appendText(TKSData& content, const std::string& text) {
  content.insert(content.end(), text.begin(), text.end());
  content.push_back(0);
}

}  // namespace

TKSData makeDirectory(const DirectoryPlan& plan, Bytes code) {
  const TKSData hashes = makeHashes(plan, code);
  const std::uint32_t specialSlots = plan.components.empty() ? 0 : plan.components.rbegin()->first;
  const std::size_t size = codesign::hashSize(plan.hashType);
  const Offsets offsets(plan);

  TKSData content;
  append32(content, plan.version);
  append32(content, plan.flags);
  append32(content, static_cast<std::uint32_t>(offsets.hashes + specialSlots * size));
  append32(content, static_cast<std::uint32_t>(offsets.identifier));
  append32(content, specialSlots);
  append32(content, static_cast<std::uint32_t>(hashes.size() / size) - specialSlots);
  append32(content, static_cast<std::uint32_t>(std::min<std::uint64_t>(code.size(), UINT32_MAX)));
  content.push_back(static_cast<std::uint8_t>(size));
  content.push_back(static_cast<std::uint8_t>(plan.hashType));
  content.push_back(0);
  content.push_back(plan.pageSizeLog);
  append32(content, 0);
  appendLaterFields(content, plan, offsets, code.size());
  appendText(content, plan.identifier);
  if (offsets.hasTeam) appendText(content, plan.team);
  content.insert(content.end(), hashes.begin(), hashes.end());
  return makeBlob(codesign::magic::kCodeDirectory, content);
}

}  // namespace tks::signing

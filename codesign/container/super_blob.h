#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "codesign/container/byte_source.h"

// The container of an embedded signature. All numbers are u32, big-endian.
//
//   blob   := magic, length (with these eight bytes), data
//   super  := 0xfade0cc0, length, count, count x (slot, offset from here), blobs

namespace tks::codesign {

/// The kinds of blobs.
namespace magic {
inline constexpr std::uint32_t kEmbeddedSignature = 0xfade0cc0;  ///< a super blob with all parts of a signature
inline constexpr std::uint32_t kCodeDirectory = 0xfade0c02;
inline constexpr std::uint32_t kRequirement = 0xfade0c00;
inline constexpr std::uint32_t kRequirements = 0xfade0c01;     ///< a set of requirements
inline constexpr std::uint32_t kWrapper = 0xfade0b01;          ///< around content that is no blob, such as the message
inline constexpr std::uint32_t kEntitlements = 0xfade7171;     ///< a property list in XML form
inline constexpr std::uint32_t kEntitlementsDer = 0xfade7172;  ///< the same in DER form
inline constexpr std::uint32_t kConstraint = 0xfade8181;       ///< a launch constraint, in DER form
}  // namespace magic

/// The numbered parts of a signature. A directory has hashes of those from 1 to kLastSpecial.
namespace slot {
inline constexpr std::uint32_t kCodeDirectory = 0;  ///< the primary one, which the message is over
inline constexpr std::uint32_t kInfoPlist = 1;
inline constexpr std::uint32_t kRequirements = 2;
inline constexpr std::uint32_t kResources = 3;     ///< the seal
inline constexpr std::uint32_t kTopDirectory = 4;  ///< a list of the parts that must exist
inline constexpr std::uint32_t kEntitlements = 5;
inline constexpr std::uint32_t kRepSpecific = 6;  ///< what a kind of container needs, such as a disk image
inline constexpr std::uint32_t kEntitlementsDer = 7;
/// Launch constraints on the code itself, its parent and the process responsible for it; constraint on libraries.
inline constexpr std::uint32_t kFirstConstraint = 8;
inline constexpr std::uint32_t kLastSpecial = 11;
/// Further directories, with hashes of other types.
inline constexpr std::uint32_t kFirstAlternate = 0x1000;
inline constexpr std::uint32_t kLastAlternate = 0x1004;
inline constexpr std::uint32_t kSignature = 0x10000;  ///< the message
inline constexpr std::uint32_t kTicket = 0x10002;     ///< of a notary, in disk images
}  // namespace slot

/// Whether the content of a slot is a blob itself; all other content is wrapped into one.
bool isBlobItself(std::uint32_t slot);

/// Whether something is a whole blob of the kind that fills a slot. False for slots without a kind of their own.
bool isBlobFor(std::uint32_t slot, const ByteSource& content);

class SuperBlob {
 public:
  /// Reads and checks the index in an area that may be larger. Fails when it is malformed.
  explicit SuperBlob(const ByteSource& area);

  /// The content of a slot: the whole blob, or what it wraps. Nothing when the slot is empty; fails when content that
  /// has to be wrapped is not.
  std::optional<ByteSource> component(std::uint32_t slot) const;

 private:
  ByteSource super_;
  std::map<std::uint32_t, std::uint32_t> offsets_;
};

}  // namespace tks::codesign

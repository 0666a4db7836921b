#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "codesign/container/byte_source.h"
#include "codesign/container/sha256_blocks.h"

namespace tks::codesign {

using Sha256Digest = std::array<std::uint8_t, 32>;

/// A message that is read piece by piece while it is hashed.
class Sha256Message {
 public:
  virtual ~Sha256Message() = default;
  /// The next piece, which stays until the one after it is asked for. All but the last have whole blocks; an empty one
  /// is the end.
  virtual Bytes next() = 0;
  /// Receives the hash. What comes after it goes to another message: this one is not touched again.
  virtual void finish(const Sha256Digest& digest) = 0;
};

/// Hashes messages side by side, up to kSha256Lanes: `more` is asked whenever there is room, and gives a message or
/// null when there is none now. Returns when there is none and all have been finished. What `more` or a message throws
/// ends it; messages that were begun are then not finished.
void hashSideBySide(Sha256Blocks blocks, const std::function<Sha256Message*()>& more);

/// The same for messages that are in memory as a whole. `digests` has a place for each.
void hashSideBySide(Sha256Blocks blocks, std::span<const Bytes> messages, std::span<Sha256Digest> digests);

}  // namespace tks::codesign

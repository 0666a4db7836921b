#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "codesign/container/byte_source.h"

namespace tks::codesign {

using Sha256Digest = std::array<std::uint8_t, 32>;

/// SHA-256 of several messages in memory, two of them side by side: the processor's instructions for it wait for one
/// another within a message. `digests` has a place for each message.
using Sha256Lockstep = void (*)(std::span<const Bytes> messages, std::span<Sha256Digest> digests);

/// The function for this processor; null where it has no instructions for SHA-256 (OpenSSL then does as well). Changed
/// by tests only, and never while another thread checks a signature.
Sha256Lockstep& sha256Lockstep() noexcept;

}  // namespace tks::codesign

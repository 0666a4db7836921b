#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tks::codesign {

inline constexpr std::size_t kSha256Block = 64;
/// So many messages go side by side at most.
inline constexpr std::size_t kSha256Lanes = 16;

/// What a message has come to so far: the eight words a to h.
using Sha256State = std::array<std::uint32_t, 8>;

/// FIPS 180-4, section 5.3.3.
inline constexpr Sha256State kSha256Start = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                             0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

/// One message's share: its state, and where its next blocks are.
struct Sha256Lane {
  Sha256State* state = nullptr;
  const std::uint8_t* blocks = nullptr;
};

/// Takes `blocks` blocks of each lane into its state; 1 to kSha256Lanes lanes. Any thread.
using Sha256Blocks = void (*)(std::span<const Sha256Lane> lanes, std::size_t blocks);

/// What this processor has instructions for, the fastest first; nothing where it has none (OpenSSL then does as well).
std::span<const Sha256Blocks> sha256BlocksHere() noexcept;

/// The function in force: the first of those, or null. Changed by tests only, and never while another thread checks a
/// signature.
Sha256Blocks& sha256Blocks() noexcept;

}  // namespace tks::codesign

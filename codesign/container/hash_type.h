#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tks::codesign {

/// Hash types by the numbers that signatures use.
enum class HashType : std::uint8_t {
  sha1 = 1,             ///< all that was there at first; still read, no longer enough by itself on new systems
  sha256 = 2,           ///< the usual one
  sha256Truncated = 3,  ///< SHA-256, of which the first 20 bytes count
  sha384 = 4,           ///< the best one, where there are several
};

/// The hash type with a number; nothing for numbers that are not supported.
constexpr std::optional<HashType> hashTypeOf(std::uint8_t number) {
  return number >= 1 && number <= 4 ? std::optional(static_cast<HashType>(number)) : std::nullopt;
}

/// Whether it is made by SHA-256, however much of that counts.
constexpr bool isSha256(HashType type) { return type == HashType::sha256 || type == HashType::sha256Truncated; }

/// Bytes of a hash of this type.
constexpr std::size_t hashSize(HashType type) {
  constexpr std::size_t kSizes[] = {0, 20, 32, 20, 48};
  return kSizes[static_cast<std::size_t>(type)];
}

/// A hash type by the name that tools give it: "sha1", "sha256", "sha256-truncated", "sha384".
constexpr std::string_view hashName(HashType type) {
  constexpr std::string_view kNames[] = {"", "sha1", "sha256", "sha256-truncated", "sha384"};
  return kNames[static_cast<std::size_t>(type)];
}

}  // namespace tks::codesign

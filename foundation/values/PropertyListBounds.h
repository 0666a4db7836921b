#pragma once

#include <algorithm>
#include <cstddef>

// Bounds of every property list, read or written, in either form and on every system.

namespace tks::property_list {

/// Bytes of a list.
inline constexpr std::size_t kLargestSize = std::size_t{16} * 1024 * 1024;
/// Arrays and dictionaries in one another.
inline constexpr std::size_t kDeepestNesting = 512;

/// Most bytes that a binary list of this size may take in memory once every reference is followed. An object that is
/// referred to often makes much of little, and that is what the binary form is for; but a small list stays small enough
/// to be printed and written in no time.
constexpr std::size_t largestExpansion(std::size_t size) {
  constexpr std::size_t kMebibyte = 1024 * 1024;
  return std::clamp(64 * size, 8 * kMebibyte, 256 * kMebibyte);
}

}  // namespace tks::property_list

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "foundation/values/ValueNodes.h"

namespace tks::formats {

/// Gives texts numbers, equal texts the same one. Who asks keeps the texts, and shows each by its number.
class TextNumbers {
 public:
  /// Makes room for so many texts more. Throws std::bad_alloc.
  void expect(std::size_t more) {
    const std::size_t wanted = std::bit_ceil(2 * (used_ + more) + 1);
    if (wanted > slots_.size()) enlarge(wanted);
  }

  /// The number of an equal text from before; else `number`, which this one has from now on. `texts` are those that got
  /// a number, by their numbers, less than 2^32 - 1. Throws std::bad_alloc.
  std::uint32_t numberOf(const TKSValue& text, std::uint32_t number, std::span<const TKSValue* const> texts) {
    if (2 * used_ >= slots_.size()) enlarge(std::max(kFirst, 2 * slots_.size()));
    const auto hash = static_cast<std::uint32_t>(hashOf(text));
    for (std::size_t at = hash;; ++at) {
      Slot& slot = slots_[at & (slots_.size() - 1)];
      if (slot.afterNumber == 0) {
        slot = {hash, number + 1};
        ++used_;
        return number;
      }
      const std::uint32_t found = slot.afterNumber - 1;
      if (slot.hash == hash && value::Access::compareTexts(*texts[found], text) == 0) return found;
    }
  }

 private:
  static constexpr std::size_t kFirst = 64;
  struct Slot {
    std::uint32_t hash = 0;
    /// The number and one; 0: nothing is here.
    std::uint32_t afterNumber = 0;
  };

  static std::size_t hashOf(const TKSValue& text) noexcept {
    if (value::Access::isShared(text)) return std::hash<std::string_view>()(value::Access::bytes(text));
    // A short text and the zeros after it are two words.
    constexpr std::uint64_t kOdd = 0x9E37'79B9'7F4A'7C15u;
    std::uint64_t words[2];
    static_assert(sizeof words == sizeof text);
    std::memcpy(words, static_cast<const void*>(&text), sizeof words);
    // All of their bits count for the lowest ones.
    std::uint64_t mixed = words[0] * kOdd ^ words[1];
    mixed = (mixed ^ mixed >> 32) * kOdd;
    mixed = (mixed ^ mixed >> 29) * kOdd;
    return static_cast<std::size_t>(mixed ^ mixed >> 32);
  }

  void enlarge(std::size_t size) {
    std::vector<Slot> larger(size);
    for (const Slot& slot : slots_) {
      if (slot.afterNumber == 0) continue;
      std::size_t at = slot.hash;
      while (larger[at & (size - 1)].afterNumber != 0) ++at;
      larger[at & (size - 1)] = slot;
    }
    slots_ = std::move(larger);
  }

  /// A power of two of them, at most half of them used.
  std::vector<Slot> slots_;
  std::size_t used_ = 0;
};

}  // namespace tks::formats

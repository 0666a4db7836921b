#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>
#include <vector>

#include <tksinterface/TKSValue.h>

#include "foundation/values/ValueNodes.h"

namespace tks::formats {

/// Gives texts numbers, equal texts the same one. The texts have to outlive it.
class TextNumbers {
 public:
  /// The number of an equal text from before; else `number`, which this one has from now on. Throws std::bad_alloc.
  std::uint32_t numberOf(const TKSValue& text, std::uint32_t number) {
    if (2 * used_ >= slots_.size()) enlarge();
    const std::size_t hash = hashOf(text);
    for (std::size_t at = hash;; ++at) {
      Slot& slot = slots_[at & (slots_.size() - 1)];
      if (slot.text == nullptr) {
        slot = {&text, hash, number};
        ++used_;
        return number;
      }
      if (slot.hash == hash && value::Access::compareTexts(*slot.text, text) == 0) return slot.number;
    }
  }

 private:
  struct Slot {
    const TKSValue* text = nullptr;
    std::size_t hash = 0;
    std::uint32_t number = 0;
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

  void enlarge() {
    constexpr std::size_t kFirst = 64;
    std::vector<Slot> larger(slots_.empty() ? kFirst : 2 * slots_.size());
    for (const Slot& slot : slots_) {
      if (slot.text == nullptr) continue;
      std::size_t at = slot.hash;
      while (larger[at & (larger.size() - 1)].text != nullptr) ++at;
      larger[at & (larger.size() - 1)] = slot;
    }
    slots_ = std::move(larger);
  }

  /// A power of two of them, at most half of them used.
  std::vector<Slot> slots_;
  std::size_t used_ = 0;
};

}  // namespace tks::formats

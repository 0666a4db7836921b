#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "codesign/container/byte_source.h"
#include "codesign/container/digest.h"

namespace tks::codesign {

/// Longest name, text or piece of markup that is taken from a list.
inline constexpr std::size_t kLongestText = std::size_t{1} << 20;

/// A source as characters, read window by window; hashes what it reads. Both that are passed in have to outlive this.
class HashedCharacters {
 public:
  HashedCharacters(const ByteSource& source, Hasher& hasher) : source_(source), hasher_(hasher) {}

  /// The next character, or nothing at the end.
  std::optional<char> peek() {
    if (at_ == filled_ && !refill()) return std::nullopt;
    return static_cast<char>(window_[at_]);
  }
  /// The same, and goes past it.
  std::optional<char> take() {
    const std::optional<char> character = peek();
    if (character) ++at_;
    return character;
  }
  /// Takes everything before the next `end`, which stays. False when it does not come or the text gets too long.
  bool takeUntil(char end, std::string& text);
  void skipBlanks();
  /// Skips to after the next `end`. False when it does not come.
  bool skipPast(std::string_view end);
  /// Hashes what was not read.
  void finish();

 private:
  bool refill();

  static constexpr std::size_t kWindow = std::size_t{64} * 1024;

  const ByteSource& source_;
  Hasher& hasher_;
  std::vector<std::uint8_t> window_ = std::vector<std::uint8_t>(kWindow);
  std::size_t at_ = 0;
  std::size_t filled_ = 0;
  std::uint64_t offset_ = 0;
};

}  // namespace tks::codesign

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace tks::masking {

/// A word that is looked for in any case (ASCII letters only). The search goes by a few neighbouring letters of it, its
/// anchor, which should be rare in log lines.
struct Word {
  static constexpr std::size_t kAnchorLength = 3;

  std::string_view lowerCase;
  /// Where in the word the anchor stands; letters only.
  std::size_t anchor;

  constexpr std::size_t size() const { return lowerCase.size(); }

  /// Whether the word stands in `text` with its anchor at `anchorPosition`.
  constexpr bool isAround(std::size_t anchorPosition, std::string_view text) const {
    if (anchorPosition < anchor || text.size() - anchorPosition < size() - anchor) return false;
    for (std::size_t i = 0; i < size(); ++i) {
      if (!isSame(text[anchorPosition - anchor + i], lowerCase[i])) return false;
    }
    return true;
  }

 private:
  static constexpr bool isSame(char byte, char wanted) {
    return byte == wanted || (wanted >= 'a' && wanted <= 'z' && (byte | 0x20) == wanted);
  }
};

/// Looks for several words in one pass over a text, without a lower-case copy of it.
template <const Word&... words>
class WordSearch {
 public:
  static bool findsAny(std::string_view text) {
    for (std::size_t at = findAnchor(text, 0); at != std::string_view::npos; at = findAnchor(text, at + 1)) {
      if ((words.isAround(at, text) || ...)) return true;
    }
    return false;
  }

  /// The first occurrence of the (only) word at or after `from`.
  static std::size_t find(std::string_view text, std::size_t from = 0) requires(sizeof...(words) == 1) {
    const Word& word = (words, ...);
    for (std::size_t at = findAnchor(text, from + word.anchor); at != std::string_view::npos;
         at = findAnchor(text, at + 1)) {
      if (word.isAround(at, text)) return at - word.anchor;
    }
    return std::string_view::npos;
  }

 private:
  /// Anchors that stand so near are found without starting up the wide search.
  static constexpr std::size_t kNear = 8;
  static constexpr std::size_t kBlock = 64;
  /// Small and capital letters differ in one bit alone.
  static constexpr unsigned kAllButCase = 0xDF;

  static std::size_t findAnchor(std::string_view text, std::size_t from) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t end = text.size() < Word::kAnchorLength ? 0 : text.size() - Word::kAnchorLength + 1;
    std::size_t at = from;
    for (const std::size_t near = std::min(end, at + kNear); at < near; ++at) {
      if (distance(bytes + at) == 0) return at;
    }
    for (; at + kBlock <= end; at += kBlock) {
      if (smallestInBlock(bytes + at) == 0) return at + firstInBlock(bytes + at);
    }
    for (; at < end; ++at) {
      if (distance(bytes + at) == 0) return at;
    }
    return std::string_view::npos;
  }

  /// 0 where an anchor stands.
  static unsigned char distance(const unsigned char* bytes) {
    unsigned char smallest = 0xFF;
    ((smallest = std::min(smallest, distanceTo(words, bytes))), ...);
    return smallest;
  }

  static constexpr unsigned char distanceTo(const Word& word, const unsigned char* bytes) {
    unsigned differing = 0;
    for (std::size_t i = 0; i < Word::kAnchorLength; ++i) {
      differing |= bytes[i] ^ static_cast<unsigned char>(word.lowerCase[word.anchor + i]);
    }
    return static_cast<unsigned char>(differing & kAllButCase);
  }

  // Both loops are free of branches, so that the compiler turns them into vector instructions.

  static unsigned char smallestInBlock(const unsigned char* bytes) {
    unsigned char smallest = 0xFF;
    for (std::size_t i = 0; i < kBlock; ++i) smallest = std::min(smallest, distance(bytes + i));
    return smallest;
  }

  /// Where in a block that has an anchor its first one stands.
  static std::size_t firstInBlock(const unsigned char* bytes) {
    unsigned char distances[kBlock];
    for (std::size_t i = 0; i < kBlock; ++i) distances[i] = distance(bytes + i);
    return static_cast<std::size_t>(static_cast<unsigned char*>(std::memchr(distances, 0, kBlock)) - distances);
  }
};

}  // namespace tks::masking

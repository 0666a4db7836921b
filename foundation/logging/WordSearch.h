#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace tks::masking {

/// A word that is looked for in any case (ASCII letters only). The search goes by a few neighbouring bytes of it, its
/// anchor, which should be rare in log lines. Three bytes or more.
struct Word {
  static constexpr std::size_t kAnchorLength = 3;

  std::string_view lowerCase;
  /// Where in the word the anchor stands.
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

  /// 0 where the anchor may stand: small and capital letters differ in one bit alone.
  constexpr unsigned char distanceTo(const unsigned char* bytes) const {
    unsigned differing = 0;
    for (std::size_t i = 0; i < kAnchorLength; ++i) {
      differing |= bytes[i] ^ static_cast<unsigned char>(lowerCase[anchor + i]);
    }
    return static_cast<unsigned char>(differing & kAllButCase);
  }

 private:
  static constexpr unsigned kAllButCase = 0xDF;

  static constexpr bool isSame(char byte, char wanted) {
    return byte == wanted || (wanted >= 'a' && wanted <= 'z' && (byte | 0x20) == wanted);
  }
};

/// The first place at or after `from` where an anchor may stand: where `distance` of the bytes there is 0.
template <class Distance>
std::size_t findAnchor(std::string_view text, std::size_t from, const Distance& distance) {
  /// Anchors that stand so near are found without starting up the wide search.
  constexpr std::size_t kNear = 8;
  constexpr std::size_t kBlock = 64;
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t end = text.size() < Word::kAnchorLength ? 0 : text.size() - Word::kAnchorLength + 1;
  std::size_t at = from;
  for (const std::size_t near = std::min(end, at + kNear); at < near; ++at) {
    if (distance(bytes + at) == 0) return at;
  }
  // Both inner loops are free of branches, so that the compiler turns them into vector instructions.
  for (; at + kBlock <= end; at += kBlock) {
    unsigned char smallest = 0xFF;
    for (std::size_t i = 0; i < kBlock; ++i) smallest = std::min(smallest, distance(bytes + at + i));
    if (smallest != 0) continue;
    unsigned char distances[kBlock];
    for (std::size_t i = 0; i < kBlock; ++i) distances[i] = distance(bytes + at + i);
    return at + static_cast<std::size_t>(static_cast<unsigned char*>(std::memchr(distances, 0, kBlock)) - distances);
  }
  for (; at < end; ++at) {
    if (distance(bytes + at) == 0) return at;
  }
  return std::string_view::npos;
}

/// Looks for a word that is known at run time only.
class TextSearch {
 public:
  explicit TextSearch(std::string_view lowerCase) : word_{lowerCase, 0} {
    std::copy_n(lowerCase.begin(), Word::kAnchorLength, anchor_);
  }

  /// The first occurrence of the word at or after `from`.
  std::size_t find(std::string_view text, std::size_t from = 0) const {
    const auto next = [&](std::size_t at) { return findAnchor(text, at, *this); };
    for (std::size_t at = next(from); at != std::string_view::npos; at = next(at + 1)) {
      if (isAround(at, text)) return at;
    }
    return std::string_view::npos;
  }

  bool isAround(std::size_t anchorPosition, std::string_view text) const {
    return word_.isAround(anchorPosition, text);
  }

  unsigned char operator()(const unsigned char* bytes) const {
    return Word{{anchor_, Word::kAnchorLength}, 0}.distanceTo(bytes);
  }

 private:
  Word word_;
  char anchor_[Word::kAnchorLength];
};

/// Looks for several words in one pass over a text, without a lower-case copy of it.
template <const Word&... words>
class WordSearch {
 public:
  static bool findsAny(std::string_view text) {
    return findsAny(text, distance, [](std::size_t) { return false; });
  }

  /// The same with one word more.
  static bool findsAny(std::string_view text, const TextSearch& further) {
    return findsAny(
        text, [&further](const unsigned char* bytes) { return std::min(distance(bytes), further(bytes)); },
        [&](std::size_t at) { return further.isAround(at, text); });
  }

  /// The first occurrence of the (only) word at or after `from`.
  static std::size_t find(std::string_view text, std::size_t from = 0) requires(sizeof...(words) == 1) {
    const Word& word = (words, ...);
    const auto next = [text](std::size_t at) { return findAnchor(text, at, distance); };
    for (std::size_t at = next(from + word.anchor); at != std::string_view::npos; at = next(at + 1)) {
      if (word.isAround(at, text)) return at - word.anchor;
    }
    return std::string_view::npos;
  }

 private:
  /// 0 where an anchor may stand.
  static constexpr auto distance = [](const unsigned char* bytes) {
    unsigned char smallest = 0xFF;
    ((smallest = std::min(smallest, words.distanceTo(bytes))), ...);
    return smallest;
  };

  template <class Distance, class Further>
  static bool findsAny(std::string_view text, const Distance& distanceToAny, const Further& isFurther) {
    const auto next = [&](std::size_t at) { return findAnchor(text, at, distanceToAny); };
    for (std::size_t at = next(0); at != std::string_view::npos; at = next(at + 1)) {
      if ((words.isAround(at, text) || ...) || isFurther(at)) return true;
    }
    return false;
  }
};

}  // namespace tks::masking

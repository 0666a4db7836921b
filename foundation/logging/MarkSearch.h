#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

namespace tks::masking {

/// A word that is looked for: in any case (ASCII letters only), or as it stands. It is found by two neighbouring bytes
/// of it, its pair, which should be rare in log lines; a word of one byte by that byte.
class Mark {
 public:
  enum class Case { any, same };

  /// `word` is in lower case and outlives the mark; its pair begins at `pair`.
  constexpr Mark(std::string_view word, std::size_t pair, Case letterCase = Case::any)
      : word_(word), pair_(pair), anyCase_(letterCase == Case::any) {
    std::array<char, kQuick> letters{};
    std::array<char, kQuick> bytes{};
    std::array<char, kQuick> used{};
    for (std::size_t i = 0; i < kQuick && i < word.size(); ++i) {
      letters[i] = isLetter(word[i]) ? kCaseBit : '\0';
      bytes[i] = word[i];
      used[i] = '\xFF';
    }
    letters_ = std::bit_cast<std::uint64_t>(letters);
    bytes_ = std::bit_cast<std::uint64_t>(bytes);
    used_ = std::bit_cast<std::uint64_t>(used);
  }

  constexpr std::size_t size() const noexcept { return word_.size(); }
  constexpr std::string_view word() const noexcept { return word_; }
  /// Where in the word the pair begins.
  constexpr std::size_t pair() const noexcept { return pair_; }
  /// Whether a byte of the word is a letter that counts in both cases.
  constexpr bool isLetter(char byte) const noexcept { return anyCase_ && byte >= 'a' && byte <= 'z'; }

  /// Whether the word stands at a place of a text.
  bool standsAt(std::size_t at, std::string_view text) const noexcept {
    if (at >= text.size() || text.size() - at < size()) return false;
    if (size() > kQuick || text.size() - at < kQuick) return standsSlowlyAt(at, text);
    std::uint64_t bytes;
    std::memcpy(&bytes, text.data() + at, sizeof bytes);
    return ((bytes | letters_) & used_) == bytes_;
  }

 private:
  /// Words of so many bytes are compared at once.
  static constexpr std::size_t kQuick = 8;
  static constexpr char kCaseBit = 0x20;

  bool standsSlowlyAt(std::size_t at, std::string_view text) const noexcept {
    for (std::size_t i = 0; i < size(); ++i) {
      const char byte = text[at + i];
      if (byte != word_[i] && (!isLetter(word_[i]) || (byte | kCaseBit) != word_[i])) return false;
    }
    return true;
  }

  std::string_view word_;
  std::size_t pair_;
  bool anyCase_;
  std::uint64_t letters_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t used_ = 0;
};

/// The pairs that are looked for together, in up to eight groups.
struct PairTables {
  static constexpr std::size_t kMostGroups = 8;
  static constexpr std::size_t kMostPairs = 16;
  using Halves = std::array<std::uint8_t, 16>;

  struct Neighbour {
    /// In lower case.
    std::uint8_t byte;
    /// Whether it counts in both cases.
    bool isLetter;
  };
  struct Pair {
    Neighbour first;
    Neighbour second;
    /// All bits where the second byte may be any, else none.
    std::uint8_t anySecond;
    /// The bit of the group.
    std::uint8_t group;
  };

  /// Adds the pair of a mark to a group; no more than `kMostPairs` in all.
  constexpr void add(std::size_t group, const Mark& mark) {
    const auto bit = static_cast<std::uint8_t>(1u << group);
    const bool isByte = mark.pair() + 1 == mark.size();
    const Neighbour first = neighbourAt(mark, mark.pair());
    const Neighbour second = isByte ? Neighbour{0, false} : neighbourAt(mark, mark.pair() + 1);
    pairs[count++] = {first, second, static_cast<std::uint8_t>(isByte ? 0xFF : 0), bit};
    groups |= bit;
    addByte(0, first, bit);
    if (!isByte) return addByte(1, second, bit);
    for (std::uint8_t& half : low[1]) half |= bit;
    for (std::uint8_t& half : high[1]) half |= bit;
  }

  std::array<Pair, kMostPairs> pairs{};
  std::size_t count = 0;
  /// A bit for each group that has a pair.
  std::uint8_t groups = 0;
  /// The same by the halves of a byte: which groups it may belong to, for each of the two neighbours.
  std::array<Halves, 2> low{};
  std::array<Halves, 2> high{};

 private:
  static constexpr Neighbour neighbourAt(const Mark& mark, std::size_t at) {
    return {static_cast<std::uint8_t>(mark.word()[at]), mark.isLetter(mark.word()[at])};
  }

  constexpr void addByte(std::size_t neighbour, Neighbour known, std::uint8_t bit) {
    low[neighbour][known.byte & 0x0F] |= bit;
    high[neighbour][known.byte >> 4] |= bit;
    if (known.isLetter) high[neighbour][(known.byte & 0xDF) >> 4] |= bit;
  }
};

/// Where pairs begin in a stretch of a text.
struct PairPlaces {
  static constexpr std::size_t kBlock = 64;
  static constexpr std::size_t kStretch = 64 * kBlock;

  /// A bit for each block in which a pair begins.
  std::uint64_t blocks;
  /// Of those blocks: a bit for each byte, by group. Undefined of others.
  std::uint64_t bytes[kStretch / kBlock][PairTables::kMostGroups];
};

/// A stretch of a text: `size` bytes, no more than a stretch has, after which `rest` bytes can be read: those of the
/// text and the zero that closes it.
struct Stretch {
  const char* bytes;
  std::size_t size;
  std::size_t rest;
};

/// What was found in a block that was starred.
struct StarredBlock {
  /// One more than where the last mark begins; 0: there is none.
  std::size_t last;
  /// The one mark that is left to the caller, because what is before it may begin before the block; kBlock: there is
  /// none.
  std::size_t left;
};

/// A way to go through texts.
struct PairFinder {
  const char* name;
  /// Finds the pairs of some groups, a bit for each, in a stretch. Of other groups nothing is told.
  void (*find)(const Stretch& stretch, const PairTables& tables, std::uint8_t groups, PairPlaces& places);
  /// Stars the letters and digits right before each mark of a block, but for the first three of more than three. Marks
  /// in the first `skipped` bytes, fewer than a block has, do not count, and none right after another one. `word` is
  /// what stands at a mark, signs and digits; as many bytes as it has follow on the block. A text that begins with the
  /// block begins with such a letter, whatever it is. Null where it is not quicker than to go from mark to mark.
  StarredBlock (*starBefore)(char* block, std::size_t skipped, std::string_view word, bool beginsText);
};

/// The ways that this processor knows, the quickest first; the last one needs no particular instructions.
std::span<const PairFinder> pairFinders() noexcept;

/// The way in force: the quickest. Changed by tests only, and never while another thread masks.
PairFinder& pairFinder() noexcept;

/// Goes through a text for the places where the pairs of groups begin. The text may be changed and cut off meanwhile: a
/// place may tell of what stood there before, so that the mark has to be looked for there.
class PairScan {
 public:
  /// Of a text of which only the beginning counts, no pair is found that begins after its first `most` bytes.
  PairScan(const std::string& text, const PairTables& tables, std::size_t most = std::string::npos) noexcept
      : text_(text), tables_(tables), most_(most) {
    for (std::size_t begin = 0; begin < end() && found_ != tables_.groups; begin += PairPlaces::kStretch) {
      look(begin, static_cast<std::uint8_t>(tables_.groups & ~found_));
      if (places_.blocks != 0) noteFirsts(begin);
    }
  }

  /// Whether no group has a pair anywhere.
  bool foundNothing() const noexcept { return found_ == 0; }

  /// The first place at or after `from` where a pair of the group begins; npos when there is none.
  std::size_t next(std::size_t group, std::size_t from) noexcept {
    if ((found_ >> group & 1) == 0) return std::string::npos;
    from = std::max(from, first_[group]);
    while (from < end()) {
      const bool isHere = from - begin_ < PairPlaces::kStretch && (groups_ >> group & 1) != 0;
      if (!isHere) look(from - from % PairPlaces::kStretch, static_cast<std::uint8_t>(1u << group));
      const std::size_t found = nextInStretch(group, from);
      if (found != std::string::npos) return found;
      from = begin_ + PairPlaces::kStretch;
    }
    return std::string::npos;
  }

  /// Calls `visit` with where a block begins and with the places in it, a bit for each byte, where a pair of the group
  /// begins, but for those right after another one; block by block. It returns up to where it wants to hear of no
  /// block.
  template <class Visit>
  void forEachBlock(std::size_t group, const Visit& visit) noexcept {
    std::size_t from = 0;
    for (std::size_t at = next(group, 0); at != std::string::npos; at = next(group, from)) {
      const std::size_t first = (at - begin_) / PairPlaces::kBlock;
      for (std::uint64_t left = places_.blocks >> first << first; left != 0; left &= left - 1) {
        const auto number = static_cast<std::size_t>(std::countr_zero(left));
        const std::size_t block = begin_ + number * PairPlaces::kBlock;
        const std::uint64_t bytes = places_.bytes[number][group];
        if (bytes != 0 && block >= from) from = visit(block, bytes & ~(bytes << 1));
      }
      from = std::max(from, begin_ + PairPlaces::kStretch);
    }
  }

  /// The first place at or after `from` where a mark of the group stands; npos when there is none.
  std::size_t find(std::size_t group, const Mark& mark, std::size_t from = 0) noexcept {
    for (std::size_t at = next(group, from + mark.pair()); at != std::string::npos; at = nextAfter(group, at)) {
      if (mark.standsAt(at - mark.pair(), text_)) return at - mark.pair();
    }
    return std::string::npos;
  }

 private:
  std::size_t end() const noexcept { return std::min(text_.size(), most_); }

  void look(std::size_t begin, std::uint8_t groups) noexcept {
    begin_ = begin;
    groups_ = groups;
    const std::size_t size = std::min(end() - begin, PairPlaces::kStretch);
    pairFinder().find({text_.data() + begin, size, text_.size() - begin - size + 1}, tables_, groups, places_);
  }

  /// The next place after one that was found just now.
  std::size_t nextAfter(std::size_t group, std::size_t at) noexcept {
    const std::uint64_t bytes = places_.bytes[(at - begin_) / PairPlaces::kBlock][group];
    // In two steps: a shift by all bits is none.
    const std::uint64_t left = bytes >> at % PairPlaces::kBlock >> 1;
    if (left != 0) return at + 1 + static_cast<std::size_t>(std::countr_zero(left));
    return next(group, (at | (PairPlaces::kBlock - 1)) + 1);
  }

  /// Of the groups that were looked for at last: where those that are there for the first time begin.
  void noteFirsts(std::size_t begin) noexcept {
    for (unsigned left = groups_; left != 0; left &= left - 1) {
      const auto group = static_cast<std::size_t>(std::countr_zero(left));
      first_[group] = nextInStretch(group, begin);
      if (first_[group] != std::string::npos) found_ |= static_cast<std::uint8_t>(1u << group);
    }
  }

  std::size_t nextInStretch(std::size_t group, std::size_t from) const noexcept {
    std::size_t block = (from - begin_) / PairPlaces::kBlock;
    std::uint64_t blocks = places_.blocks >> block;
    if (blocks == 0) return std::string::npos;
    if ((blocks & 1) != 0) {
      const std::uint64_t bytes = places_.bytes[block][group] >> (from % PairPlaces::kBlock);
      if (bytes != 0) return from + static_cast<std::size_t>(std::countr_zero(bytes));
    }
    for (blocks >>= 1, ++block; blocks != 0; blocks >>= 1, ++block) {
      const auto skipped = static_cast<std::size_t>(std::countr_zero(blocks));
      block += skipped;
      blocks >>= skipped;
      const std::uint64_t bytes = places_.bytes[block][group];
      if (bytes == 0) continue;
      return begin_ + block * PairPlaces::kBlock + static_cast<std::size_t>(std::countr_zero(bytes));
    }
    return std::string::npos;
  }

  const std::string& text_;
  const PairTables& tables_;
  const std::size_t most_;
  /// The stretch that was looked at last, and for which groups.
  std::size_t begin_ = 0;
  std::uint8_t groups_ = 0;
  /// The groups that have a pair somewhere, and where the first one begins.
  std::uint8_t found_ = 0;
  std::array<std::size_t, PairTables::kMostGroups> first_;
  PairPlaces places_;
};

}  // namespace tks::masking

#include "foundation/logging/MarkSearch.h"

#include <algorithm>

namespace tks::masking {
namespace {

constexpr std::size_t kBlock = PairPlaces::kBlock;

/// Calls `look` with each block, after which one byte more can be read, and its number. Bytes beyond the text are zero
/// there, and begin no pair.
template <class Look>
[[gnu::always_inline]] inline void forEachBlock(const Stretch& stretch, const Look& look) {
  const std::size_t readable = stretch.size + stretch.rest;
  std::size_t at = 0;
  for (; at + kBlock <= stretch.size; at += kBlock) look(stretch.bytes + at, at / kBlock);
  if (at == stretch.size) return;
  char padded[kBlock + 1] = {};
  std::copy_n(stretch.bytes + at, std::min(readable - at, sizeof padded), padded);
  look(padded, at / kBlock);
}

/// By comparing; the inner loops are free of branches, so that the compiler turns them into vector instructions.
struct Plain {
  struct Block {
    std::uint8_t asItStands[kBlock + 1];
    std::uint8_t small[kBlock + 1];

    const std::uint8_t* of(PairTables::Neighbour neighbour) const { return neighbour.isLetter ? small : asItStands; }
  };
  using Groups = std::uint8_t[kBlock];

  /// The groups of the pairs that begin at each byte; returns all of them together.
  static std::uint8_t groupsIn(const char* bytes, const PairTables& tables, std::uint8_t wanted, Groups& groups) {
    Block block;
    std::memcpy(block.asItStands, bytes, sizeof block.asItStands);
    for (std::size_t i = 0; i <= kBlock; ++i) block.small[i] = block.asItStands[i] | 0x20;
    std::fill(std::begin(groups), std::end(groups), std::uint8_t{0});
    for (std::size_t k = 0; k < tables.count; ++k) {
      const PairTables::Pair pair = tables.pairs[k];
      const auto bit = static_cast<std::uint8_t>(pair.group & wanted);
      if (bit == 0) continue;
      const std::uint8_t* const first = block.of(pair.first);
      const std::uint8_t* const second = block.of(pair.second) + 1;
      for (std::size_t i = 0; i < kBlock; ++i) {
        const auto isFirst = static_cast<std::uint8_t>(first[i] == pair.first.byte ? 0xFF : 0);
        const auto isSecond = static_cast<std::uint8_t>(second[i] == pair.second.byte ? 0xFF : 0);
        groups[i] |= static_cast<std::uint8_t>(isFirst & (isSecond | pair.anySecond) & bit);
      }
    }
    std::uint8_t all = 0;
    for (const std::uint8_t one : groups) all |= one;
    return all;
  }

  static void find(const Stretch& stretch, const PairTables& tables, std::uint8_t wanted, PairPlaces& places) {
    places.blocks = 0;
    forEachBlock(stretch, [&](const char* block, std::size_t number) {
      Groups groups;
      if (groupsIn(block, tables, wanted, groups) == 0) return;
      places.blocks |= std::uint64_t{1} << number;
      auto& found = places.bytes[number];
      std::fill(std::begin(found), std::end(found), std::uint64_t{0});
      for (std::size_t i = 0; i < kBlock; ++i) {
        for (unsigned left = groups[i]; left != 0; left &= left - 1) {
          found[std::countr_zero(left)] |= std::uint64_t{1} << i;
        }
      }
    });
  }
};

#if defined(__x86_64__)
/// 32 bytes at a time: a table of sixteen bytes tells of each half of a byte which groups it may belong to.
struct Avx2 {
  using Bytes [[gnu::vector_size(32)]] = char;
  using Codes [[gnu::vector_size(32)]] = unsigned char;
  using Words [[gnu::vector_size(32)]] = std::uint16_t;
  using Quarters [[gnu::vector_size(32)]] = std::uint64_t;
  using Places [[gnu::vector_size(32)]] = std::uint32_t;
  static constexpr unsigned kHalf = kBlock / 2;

  struct Tables {
    Bytes firstLow, firstHigh, secondLow, secondHigh;
  };

  [[gnu::target("avx2")]] static Bytes load(const char* bytes) {
    Bytes loaded;
    std::memcpy(&loaded, bytes, sizeof loaded);
    return loaded;
  }

  /// Each half of the register has a table: the same one twice, for the groups that are wanted.
  [[gnu::target("avx2")]] static Bytes tableOf(const PairTables::Halves& halves, std::uint8_t wanted) {
    Bytes table;
    std::memcpy(&table, halves.data(), halves.size());
    std::memcpy(reinterpret_cast<char*>(&table) + halves.size(), halves.data(), halves.size());
    return table & static_cast<char>(wanted);
  }

  /// The groups that each byte may belong to.
  [[gnu::target("avx2")]] static Bytes groupsOf(Bytes bytes, Bytes low, Bytes high) {
    const Bytes lowHalves = bytes & 0x0F;
    const Bytes highHalves = reinterpret_cast<Bytes>(reinterpret_cast<Words>(bytes) >> 4) & 0x0F;
    return __builtin_ia32_pshufb256(low, lowHalves) & __builtin_ia32_pshufb256(high, highHalves);
  }

  [[gnu::target("avx2")]] static Bytes pairsAt(const char* bytes, const Tables& tables) {
    return groupsOf(load(bytes), tables.firstLow, tables.firstHigh) &
           groupsOf(load(bytes + 1), tables.secondLow, tables.secondHigh);
  }

  /// A bit for each byte that has the bit of a group.
  [[gnu::target("avx2")]] static std::uint64_t bytesOf(Bytes groups, unsigned group) {
    const Words topmost = reinterpret_cast<Words>(groups) << (7 - group);
    return static_cast<std::uint32_t>(__builtin_ia32_pmovmskb256(reinterpret_cast<Bytes>(topmost)));
  }

  /// 32 bytes of a block, and how their places become those of the block: the first ones are dropped, and the others
  /// stand after `before` bytes.
  struct Part {
    Bytes groups{};
    unsigned dropped = 0;
    unsigned before = 0;
  };

  [[gnu::target("avx2"), gnu::always_inline]] static inline void note(const Part& first, const Part& second,
                                                                      std::size_t number, unsigned wanted,
                                                                      PairPlaces& places) {
    const auto any = reinterpret_cast<Quarters>(first.groups | second.groups);
    if ((any[0] | any[1] | any[2] | any[3]) == 0) return;
    places.blocks |= std::uint64_t{1} << number;
    for (unsigned left = wanted; left != 0; left &= left - 1) {
      const auto group = static_cast<unsigned>(std::countr_zero(left));
      places.bytes[number][group] = bytesOf(first.groups, group) >> first.dropped << first.before |
                                    bytesOf(second.groups, group) >> second.dropped << second.before;
    }
  }

  /// The end of a stretch, shorter than a block: the last 32 bytes are looked at as a whole.
  [[gnu::target("avx2")]] static void lookAtEnd(const Stretch& stretch, std::size_t at, const Tables& tables,
                                                unsigned wanted, PairPlaces& places) {
    const auto size = static_cast<unsigned>(stretch.size - at);
    char padded[kHalf + 1] = {};
    const char* last = padded;
    if (stretch.size < kHalf) {
      std::memcpy(padded + kHalf - size, stretch.bytes, size);
    } else {
      last = stretch.bytes + stretch.size - kHalf;
    }
    const Bytes groups = pairsAt(last, tables);
    if (size <= kHalf) return note({groups, kHalf - size, 0}, {}, at / kBlock, wanted, places);
    note({pairsAt(stretch.bytes + at, tables)}, {groups, 0, size - kHalf}, at / kBlock, wanted, places);
  }

  [[gnu::target("avx2")]] static void find(const Stretch& stretch, const PairTables& tables, std::uint8_t wanted,
                                           PairPlaces& places) {
    const Tables wide{tableOf(tables.low[0], wanted), tableOf(tables.high[0], 0xFF), tableOf(tables.low[1], 0xFF),
                      tableOf(tables.high[1], 0xFF)};
    places.blocks = 0;
    std::size_t at = 0;
    for (; at + kBlock <= stretch.size; at += kBlock) {
      const char* const block = stretch.bytes + at;
      note({pairsAt(block, wide)}, {pairsAt(block + kHalf, wide), 0, kHalf}, at / kBlock, wanted, places);
    }
    if (at != stretch.size) lookAtEnd(stretch, at, wide, wanted, places);
  }

  /// A bit for each byte of 32 that is not zero in a mask, the topmost one for the first.
  [[gnu::target("avx2")]] static std::uint32_t backwards(Bytes mask) {
    constexpr Bytes kOrder = {15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0,
                              15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0};
    const int bits = __builtin_ia32_pmovmskb256(__builtin_ia32_pshufb256(mask, kOrder));
    return std::rotl(static_cast<std::uint32_t>(bits), 16);
  }

  [[gnu::target("avx2")]] static std::uint32_t lettersBackwards(const char* half) {
    // Moved to the lowest numbers of those with a sign, so that one comparison is enough.
    constexpr int kLowest = -128;
    const auto codes = reinterpret_cast<Codes>(load(half));
    const auto letters = reinterpret_cast<Bytes>((codes | 0x20) + static_cast<unsigned char>(kLowest - 'a'));
    const auto digits = reinterpret_cast<Bytes>(codes + static_cast<unsigned char>(kLowest - '0'));
    return backwards((letters < kLowest + 26) | (digits < kLowest + 10));
  }

  [[gnu::target("avx2")]] static std::uint32_t marksBackwards(const char* half, std::string_view word) {
    Bytes marks = load(half) == word[0];
    for (std::size_t i = 1; i < word.size(); ++i) marks &= load(half + i) == word[i];
    return backwards(marks);
  }

  /// Stars those of 32 bytes that have a bit, the topmost one for the first.
  [[gnu::target("avx2")]] static void star(char* half, std::uint32_t backwards) {
    constexpr Bytes kByteOfBits = {3, 3, 3, 3, 3, 3, 3, 3, 2, 2, 2, 2, 2, 2, 2, 2,
                                   1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0};
    constexpr Places kBits = {0x10204080, 0x01020408, 0x10204080, 0x01020408,
                              0x10204080, 0x01020408, 0x10204080, 0x01020408};
    const auto bits = reinterpret_cast<Bytes>(kBits);
    const Bytes own = __builtin_ia32_pshufb256(reinterpret_cast<Bytes>(Places{} + backwards), kByteOfBits) & bits;
    const Bytes starred = own == bits ? Bytes{} + '*' : load(half);
    std::memcpy(half, &starred, sizeof starred);
  }

  /// All bits run backwards here: what stands before a mark follows on it then, so that an addition finds its end.
  [[gnu::target("avx2")]] static StarredBlock starBefore(char* block, std::size_t skipped, std::string_view word,
                                                         bool beginsText) {
    const std::uint64_t all = std::uint64_t{marksBackwards(block, word)} << kHalf | marksBackwards(block + kHalf, word);
    const std::uint64_t marks = all & ~(all >> 1) & ~std::uint64_t{0} >> skipped;
    if (marks == 0) return {0, kBlock};
    const std::uint64_t letters = std::uint64_t{lettersBackwards(block)} << kHalf | lettersBackwards(block + kHalf) |
                                  std::uint64_t{beginsText} << (kBlock - 1);
    std::uint64_t before = letters & ~(letters + (marks << 1 & letters));
    StarredBlock done{kBlock - static_cast<std::size_t>(std::countr_zero(marks)), kBlock};
    if (!beginsText && (before | marks) >> (kBlock - 1) != 0) {
      const int reaching = std::countl_one(before);
      done.left = static_cast<std::size_t>(reaching);
      before &= ~std::uint64_t{0} >> reaching;
    }
    const std::uint64_t firsts = before & ~(before >> 1);
    const std::uint64_t ofMany = firsts & before << 1 & before << 2 & before << 3;
    const std::uint64_t starred = before & ~(ofMany | ofMany >> 1 | ofMany >> 2);
    star(block, static_cast<std::uint32_t>(starred >> kHalf));
    star(block + kHalf, static_cast<std::uint32_t>(starred));
    return done;
  }

  /// Whether the processor has the instructions, and the system keeps their registers. Asked of the processor itself:
  /// the compiler's question needs a library that not every linker has.
  static bool isThere() noexcept {
    constexpr std::uint32_t kSavedByTheSystem = 1u << 27;
    constexpr std::uint32_t kAvx = 1u << 28;
    constexpr std::uint32_t kAvx2 = 1u << 5;
    constexpr std::uint32_t kVectorRegisters = 6;
    if (identify(0, 0).a < 7) return false;
    const std::uint32_t wanted = kSavedByTheSystem | kAvx;
    if ((identify(1, 0).c & wanted) != wanted) return false;
    std::uint32_t saved = 0;
    std::uint32_t high = 0;
    asm volatile("xgetbv" : "=a"(saved), "=d"(high) : "c"(0));
    return (saved & kVectorRegisters) == kVectorRegisters && (identify(7, 0).b & kAvx2) != 0;
  }

 private:
  struct Identity {
    std::uint32_t a, b, c, d;
  };
  static Identity identify(std::uint32_t leaf, std::uint32_t part) noexcept {
    Identity known{};
    asm volatile("cpuid" : "=a"(known.a), "=b"(known.b), "=c"(known.c), "=d"(known.d) : "a"(leaf), "c"(part));
    return known;
  }
};
#endif

}  // namespace

std::span<const PairFinder> pairFinders() noexcept {
#if defined(__x86_64__)
  static constexpr PairFinder kFinders[] = {{"AVX2", Avx2::find, Avx2::starBefore}, {"plain", Plain::find, nullptr}};
  return Avx2::isThere() ? std::span(kFinders) : std::span(kFinders).subspan(1);
#else
  static constexpr PairFinder kFinders[] = {{"plain", Plain::find, nullptr}};
  return kFinders;
#endif
}

PairFinder& pairFinder() noexcept {
  static PairFinder finder = pairFinders().front();
  return finder;
}

}  // namespace tks::masking

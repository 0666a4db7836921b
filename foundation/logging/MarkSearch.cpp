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
  for (; at + kBlock < readable && at + kBlock <= stretch.size; at += kBlock) look(stretch.bytes + at, at / kBlock);
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
  using Words [[gnu::vector_size(32)]] = std::uint16_t;
  using Quarters [[gnu::vector_size(32)]] = std::uint64_t;

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

  [[gnu::target("avx2")]] static void look(const char* block, std::size_t number, const Tables& tables, unsigned wanted,
                                           PairPlaces& places) {
    constexpr std::size_t kHalf = kBlock / 2;
    const Bytes first = pairsAt(block, tables);
    const Bytes second = pairsAt(block + kHalf, tables);
    const auto any = reinterpret_cast<Quarters>(first | second);
    if ((any[0] | any[1] | any[2] | any[3]) == 0) return;
    places.blocks |= std::uint64_t{1} << number;
    for (unsigned left = wanted; left != 0; left &= left - 1) {
      const auto group = static_cast<unsigned>(std::countr_zero(left));
      places.bytes[number][group] = bytesOf(first, group) | bytesOf(second, group) << kHalf;
    }
  }

  [[gnu::target("avx2")]] static void find(const Stretch& stretch, const PairTables& tables, std::uint8_t wanted,
                                           PairPlaces& places) {
    const Tables wide{tableOf(tables.low[0], wanted), tableOf(tables.high[0], 0xFF), tableOf(tables.low[1], 0xFF),
                      tableOf(tables.high[1], 0xFF)};
    places.blocks = 0;
    const std::size_t readable = stretch.size + stretch.rest;
    std::size_t at = 0;
    for (; at + kBlock < readable && at + kBlock <= stretch.size; at += kBlock) {
      look(stretch.bytes + at, at / kBlock, wide, wanted, places);
    }
    if (at == stretch.size) return;
    char padded[kBlock + 1] = {};
    std::memcpy(padded, stretch.bytes + at, std::min(readable - at, sizeof padded));
    look(padded, at / kBlock, wide, wanted, places);
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
  static constexpr PairFinder kFinders[] = {{"AVX2", Avx2::find}, {"plain", Plain::find}};
  return Avx2::isThere() ? std::span(kFinders) : std::span(kFinders).subspan(1);
#else
  static constexpr PairFinder kFinders[] = {{"plain", Plain::find}};
  return kFinders;
#endif
}

PairFinder& pairFinder() noexcept {
  static PairFinder finder = pairFinders().front();
  return finder;
}

}  // namespace tks::masking

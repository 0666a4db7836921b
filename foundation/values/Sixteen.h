#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

// Sixteen bytes of a text, all looked at at once, on every processor that the compiler knows vectors for.

namespace tks {

using Sixteen [[gnu::vector_size(16)]] = unsigned char;

/// The bytes from a place on, all of which can be read.
inline Sixteen sixteenAt(const char* bytes) noexcept {
  Sixteen sixteen;
  std::memcpy(&sixteen, bytes, sizeof sixteen);
  return sixteen;
}

inline bool isZero(Sixteen bytes) noexcept {
  using Words [[gnu::vector_size(16)]] = std::uint64_t;
  const auto words = reinterpret_cast<Words>(bytes);
  return (words[0] | words[1]) == 0;
}

inline bool areAscii(Sixteen bytes) noexcept { return isZero(bytes & 0x80); }

/// What a comparison gives, as bytes: all bits of each byte for which it holds.
template <class Comparison>
Sixteen marksOf(Comparison comparison) noexcept {
  return reinterpret_cast<Sixteen>(comparison);
}

/// Whether a byte is marked, by all its bits.
inline bool haveMark(Sixteen marks) noexcept {
#ifdef __SSE2__
  using Signed [[gnu::vector_size(16)]] = char;
  return __builtin_ia32_pmovmskb128(reinterpret_cast<Signed>(marks)) != 0;
#else
  return !isZero(marks);
#endif
}

/// Where the first byte that is marked, by all its bits, stands; sixteen when none is.
inline std::size_t firstMarked(Sixteen marks) noexcept {
#ifdef __SSE2__
  using Signed [[gnu::vector_size(16)]] = char;
  const auto bits = static_cast<unsigned>(__builtin_ia32_pmovmskb128(reinterpret_cast<Signed>(marks)));
  // Where there is none, which is nearly everywhere, what comes next need not wait for the number.
  return bits != 0 ? static_cast<std::size_t>(std::countr_zero(bits)) : sizeof marks;
#else
  const auto [low, high] = std::bit_cast<std::array<std::uint64_t, 2> >(marks);
  const auto firstOf = [](std::uint64_t word) {
    const bool isLittle = std::endian::native == std::endian::little;
    return static_cast<std::size_t>(isLittle ? std::countr_zero(word) : std::countl_zero(word)) / 8;
  };
  return low != 0 ? firstOf(low) : 8 + firstOf(high);
#endif
}

}  // namespace tks

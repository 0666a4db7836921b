#include "codesign/container/sha256_blocks.h"

#include <algorithm>

#if defined(__x86_64__)
#include <cpuid.h>
// The compiler's own header has values there that are meant to be anything.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop
#endif

namespace tks::codesign {

#if defined(__x86_64__)
namespace {

/// FIPS 180-4, section 4.2.2.
alignas(64) constexpr std::uint32_t kRounds[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

// The instructions for SHA-256: within a message they wait for one another, so that several messages cost little more
// than one. Four fill them.

constexpr std::size_t kMostAbreast = 4;

/// The eight words of a state in the order in which the instructions want them: F, E, B, A and H, G, D, C.
struct PackedState {
  __m128i feba;
  __m128i hgdc;
};

[[gnu::target("sha,sse4.1")]] PackedState packed(const Sha256State& state) {
  const auto word = [&](std::size_t i) { return static_cast<int>(state[i]); };
  return {_mm_set_epi32(word(0), word(1), word(4), word(5)), _mm_set_epi32(word(2), word(3), word(6), word(7))};
}

[[gnu::target("sha,sse4.1")]] void unpack(const PackedState& from, Sha256State& state) {
  alignas(16) std::uint32_t feba[4];
  alignas(16) std::uint32_t hgdc[4];
  _mm_store_si128(reinterpret_cast<__m128i*>(feba), from.feba);
  _mm_store_si128(reinterpret_cast<__m128i*>(hgdc), from.hgdc);
  state = {feba[3], feba[2], hgdc[3], hgdc[2], feba[1], feba[0], hgdc[1], hgdc[0]};
}

template <std::size_t count>
[[gnu::target("sha,sse4.1")]] void takeAbreast(const Sha256Lane* lanes, std::size_t blocks) {
  const __m128i bigEndian = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
  PackedState now[count];
  for (std::size_t k = 0; k < count; ++k) now[k] = packed(*lanes[k].state);
  for (std::size_t block = 0; block < blocks; ++block) {
    PackedState before[count];
    __m128i words[count][4];
    for (std::size_t k = 0; k < count; ++k) {
      before[k] = now[k];
      for (std::size_t i = 0; i < 4; ++i) {
        const auto* const from = reinterpret_cast<const __m128i*>(lanes[k].blocks + block * kSha256Block + i * 16);
        words[k][i] = _mm_shuffle_epi8(_mm_loadu_si128(from), bigEndian);
      }
    }
#pragma GCC unroll 16
    for (std::size_t group = 0; group < 16; ++group) {
      const __m128i constants = _mm_load_si128(reinterpret_cast<const __m128i*>(kRounds) + group);
#pragma GCC unroll 4
      for (std::size_t k = 0; k < count; ++k) {
        __m128i(&w)[4] = words[k];
        const __m128i current = w[group % 4];
        const __m128i sum = _mm_add_epi32(current, constants);
        now[k].hgdc = _mm_sha256rnds2_epu32(now[k].hgdc, now[k].feba, sum);
        if (group >= 3 && group < 15) {
          const __m128i previous = _mm_alignr_epi8(current, w[(group + 3) % 4], 4);
          w[(group + 1) % 4] = _mm_sha256msg2_epu32(_mm_add_epi32(w[(group + 1) % 4], previous), current);
        }
        now[k].feba = _mm_sha256rnds2_epu32(now[k].feba, now[k].hgdc, _mm_shuffle_epi32(sum, 0x0E));
        if (group >= 1 && group < 13) w[(group + 3) % 4] = _mm_sha256msg1_epu32(w[(group + 3) % 4], current);
      }
    }
    for (std::size_t k = 0; k < count; ++k) {
      now[k].feba = _mm_add_epi32(now[k].feba, before[k].feba);
      now[k].hgdc = _mm_add_epi32(now[k].hgdc, before[k].hgdc);
    }
  }
  for (std::size_t k = 0; k < count; ++k) unpack(now[k], *lanes[k].state);
}

/// In groups as even as can be: of five messages three and two, not four and one.
void takeInGroups(std::span<const Sha256Lane> lanes, std::size_t blocks) {
  constexpr void (*kTake[])(const Sha256Lane*, std::size_t) = {takeAbreast<1>, takeAbreast<2>, takeAbreast<3>,
                                                               takeAbreast<kMostAbreast>};
  while (!lanes.empty()) {
    const std::size_t groups = (lanes.size() + kMostAbreast - 1) / kMostAbreast;
    const std::size_t count = (lanes.size() + groups - 1) / groups;
    kTake[count - 1](lanes.data(), blocks);
    lanes = lanes.subspan(count);
  }
}

// Vectors of sixteen words: one word of each of sixteen messages.

/// From so many messages on the vectors are faster than the instructions above, although some of their words are idle.
constexpr std::size_t kFewestForVectors = 11;

#define TKS_VECTORS [[gnu::target("avx512f,avx512bw"), gnu::always_inline]] inline

TKS_VECTORS __m512i exclusiveOr(__m512i a, __m512i b, __m512i c) { return _mm512_ternarylogic_epi32(a, b, c, 0x96); }
/// The words of b where a is set, those of c elsewhere.
TKS_VECTORS __m512i choose(__m512i a, __m512i b, __m512i c) { return _mm512_ternarylogic_epi32(a, b, c, 0xca); }
TKS_VECTORS __m512i majority(__m512i a, __m512i b, __m512i c) { return _mm512_ternarylogic_epi32(a, b, c, 0xe8); }

/// From sixteen words of each message in a vector to one word of all messages in each.
TKS_VECTORS void transpose(__m512i (&rows)[16]) {
  __m512i mixed[16];
  for (std::size_t i = 0; i < 16; i += 2) {
    mixed[i] = _mm512_unpacklo_epi32(rows[i], rows[i + 1]);
    mixed[i + 1] = _mm512_unpackhi_epi32(rows[i], rows[i + 1]);
  }
  for (std::size_t i = 0; i < 16; i += 4) {
    rows[i] = _mm512_unpacklo_epi64(mixed[i], mixed[i + 2]);
    rows[i + 1] = _mm512_unpackhi_epi64(mixed[i], mixed[i + 2]);
    rows[i + 2] = _mm512_unpacklo_epi64(mixed[i + 1], mixed[i + 3]);
    rows[i + 3] = _mm512_unpackhi_epi64(mixed[i + 1], mixed[i + 3]);
  }
  for (std::size_t i = 0; i < 4; ++i) {
    mixed[i] = _mm512_shuffle_i32x4(rows[i], rows[i + 4], 0x88);
    mixed[i + 4] = _mm512_shuffle_i32x4(rows[i], rows[i + 4], 0xdd);
    mixed[i + 8] = _mm512_shuffle_i32x4(rows[i + 8], rows[i + 12], 0x88);
    mixed[i + 12] = _mm512_shuffle_i32x4(rows[i + 8], rows[i + 12], 0xdd);
  }
  for (std::size_t i = 0; i < 8; ++i) {
    rows[i] = _mm512_shuffle_i32x4(mixed[i], mixed[i + 8], 0x88);
    rows[i + 8] = _mm512_shuffle_i32x4(mixed[i], mixed[i + 8], 0xdd);
  }
}

/// FIPS 180-4, section 6.2.2, step 1: the word of a round from the sixteen before it.
TKS_VECTORS __m512i nextWord(const __m512i (&words)[16], std::size_t round) {
  const __m512i early = words[(round + 1) % 16];
  const __m512i late = words[(round + 14) % 16];
  const __m512i sigma0 =
      exclusiveOr(_mm512_ror_epi32(early, 7), _mm512_ror_epi32(early, 18), _mm512_srli_epi32(early, 3));
  const __m512i sigma1 =
      exclusiveOr(_mm512_ror_epi32(late, 17), _mm512_ror_epi32(late, 19), _mm512_srli_epi32(late, 10));
  return _mm512_add_epi32(_mm512_add_epi32(words[round % 16], words[(round + 9) % 16]),
                          _mm512_add_epi32(sigma0, sigma1));
}

/// Step 3. The words stay where they are, and change their names from round to round. What does not wait for the round
/// before is summed first.
TKS_VECTORS void takeWord(__m512i (&state)[8], std::size_t round, __m512i word) {
  const auto at = [round](std::size_t name) { return (name + 64 - round) % 8; };
  const __m512i a = state[at(0)];
  const __m512i e = state[at(4)];
  const __m512i constant = _mm512_set1_epi32(static_cast<int>(kRounds[round]));
  const __m512i sum1 = exclusiveOr(_mm512_ror_epi32(e, 6), _mm512_ror_epi32(e, 11), _mm512_ror_epi32(e, 25));
  const __m512i sum0 = exclusiveOr(_mm512_ror_epi32(a, 2), _mm512_ror_epi32(a, 13), _mm512_ror_epi32(a, 22));
  const __m512i ready = _mm512_add_epi32(_mm512_add_epi32(state[at(7)], _mm512_add_epi32(word, constant)),
                                         choose(e, state[at(5)], state[at(6)]));
  state[at(3)] = _mm512_add_epi32(_mm512_add_epi32(state[at(3)], ready), sum1);
  state[at(7)] =
      _mm512_add_epi32(_mm512_add_epi32(ready, sum1), _mm512_add_epi32(sum0, majority(a, state[at(1)], state[at(2)])));
}

[[gnu::target("avx512f,avx512bw")]] void takeAsVectors(std::uint32_t (&states)[8][kSha256Lanes],
                                                       const std::uint8_t* const* from, std::size_t blocks) {
  const __m512i bigEndian = _mm512_broadcast_i32x4(_mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203));
  __m512i sums[8];
  for (std::size_t i = 0; i < 8; ++i) sums[i] = _mm512_loadu_si512(states[i]);
  for (std::size_t block = 0; block < blocks; ++block) {
    __m512i words[16];
    for (std::size_t i = 0; i < 16; ++i) words[i] = _mm512_loadu_si512(from[i] + block * kSha256Block);
    transpose(words);
    for (__m512i& word : words) word = _mm512_shuffle_epi8(word, bigEndian);
    __m512i now[8];
    for (std::size_t i = 0; i < 8; ++i) now[i] = sums[i];
#pragma GCC unroll 64
    for (std::size_t round = 0; round < 64; ++round) {
      if (round >= 16) words[round % 16] = nextWord(words, round);
      takeWord(now, round, words[round % 16]);
    }
    for (std::size_t i = 0; i < 8; ++i) sums[i] = _mm512_add_epi32(sums[i], now[i]);
  }
  for (std::size_t i = 0; i < 8; ++i) _mm512_storeu_si512(states[i], sums[i]);
}

#undef TKS_VECTORS

void takeSixteen(std::span<const Sha256Lane> lanes, std::size_t blocks) {
  if (lanes.size() < kFewestForVectors) return takeInGroups(lanes, blocks);
  std::uint32_t states[8][kSha256Lanes];
  const std::uint8_t* from[kSha256Lanes];
  for (std::size_t k = 0; k < kSha256Lanes; ++k) {
    // An idle place goes through the last message once more.
    const Sha256Lane& lane = lanes[std::min(k, lanes.size() - 1)];
    from[k] = lane.blocks;
    for (std::size_t i = 0; i < 8; ++i) states[i][k] = (*lane.state)[i];
  }
  takeAsVectors(states, from, blocks);
  for (std::size_t k = 0; k < lanes.size(); ++k) {
    for (std::size_t i = 0; i < 8; ++i) (*lanes[k].state)[i] = states[i][k];
  }
}

constexpr Sha256Blocks kFunctions[] = {takeSixteen, takeInGroups};

/// The vectors go together with the instructions, which do what is left of too few messages.
std::span<const Sha256Blocks> functionsHere() noexcept {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  const bool hasInstructions =
      __builtin_cpu_supports("sse4.1") && __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_SHA) != 0;
  if (!hasInstructions) return {};
  const bool hasVectors = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
  return std::span(kFunctions).subspan(hasVectors ? 0 : 1);
}

}  // namespace
#endif

std::span<const Sha256Blocks> sha256BlocksHere() noexcept {
#if defined(__x86_64__)
  static const std::span<const Sha256Blocks> here = functionsHere();
  return here;
#else
  return {};
#endif
}

Sha256Blocks& sha256Blocks() noexcept {
  static Sha256Blocks function = sha256BlocksHere().empty() ? nullptr : sha256BlocksHere().front();
  return function;
}

}  // namespace tks::codesign

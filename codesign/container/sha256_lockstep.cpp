#include "codesign/container/sha256_lockstep.h"

#include <algorithm>
#include <cstring>
#include <utility>

#if defined(__x86_64__)
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace tks::codesign {

#if defined(__x86_64__)
namespace {

constexpr std::size_t kBlock = 64;
constexpr std::size_t kLanes = 2;

/// FIPS 180-4, section 4.2.2, four rounds in a row.
alignas(16) constexpr std::uint32_t kRounds[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

/// The eight words of a state in the order in which the instructions want them: F, E, B, A and H, G, D, C.
struct State {
  __m128i feba;
  __m128i hgdc;
};

/// FIPS 180-4, section 5.3.3.
[[gnu::target("sha,sse4.1")]] State initialState() {
  return {_mm_set_epi32(0x6a09e667, static_cast<int>(0xbb67ae85), 0x510e527f, static_cast<int>(0x9b05688c)),
          _mm_set_epi32(0x3c6ef372, static_cast<int>(0xa54ff53a), 0x1f83d9ab, 0x5be0cd19)};
}

/// Takes blocks of as many messages as there are lanes into their states.
template <std::size_t lanes>
[[gnu::target("sha,sse4.1")]] void compress(State* states, const std::uint8_t* const* messages, std::size_t blocks) {
  const __m128i bigEndian = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
  State now[lanes];
  for (std::size_t k = 0; k < lanes; ++k) now[k] = states[k];
  for (std::size_t block = 0; block < blocks; ++block) {
    State before[lanes];
    __m128i words[lanes][4];
    for (std::size_t k = 0; k < lanes; ++k) {
      before[k] = now[k];
      for (std::size_t i = 0; i < 4; ++i) {
        const auto* const from = reinterpret_cast<const __m128i*>(messages[k] + block * kBlock + i * 16);
        words[k][i] = _mm_shuffle_epi8(_mm_loadu_si128(from), bigEndian);
      }
    }
#pragma GCC unroll 16
    for (std::size_t group = 0; group < 16; ++group) {
      const __m128i constants = _mm_load_si128(reinterpret_cast<const __m128i*>(kRounds) + group);
#pragma GCC unroll 2
      for (std::size_t k = 0; k < lanes; ++k) {
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
    for (std::size_t k = 0; k < lanes; ++k) {
      now[k].feba = _mm_add_epi32(now[k].feba, before[k].feba);
      now[k].hgdc = _mm_add_epi32(now[k].hgdc, before[k].hgdc);
    }
  }
  for (std::size_t k = 0; k < lanes; ++k) states[k] = now[k];
}

/// One message on its way: first its whole blocks, then the blocks with its rest, the padding and its length.
class Lane {
 public:
  Lane() = default;
  Lane(Bytes message, Sha256Digest& digest)
      : next_(message.data()), blocks_(message.size() / kBlock), digest_(&digest) {
    state = initialState();
    const std::size_t rest = message.size() % kBlock;
    if (rest != 0) std::memcpy(tail_, message.data() + (message.size() - rest), rest);
    tail_[rest] = 0x80;
    tailBlocks_ = rest + 1 + sizeof(std::uint64_t) > kBlock ? 2 : 1;
    std::uint64_t bits = std::uint64_t{message.size()} * 8;
    for (std::size_t i = 1; i <= sizeof bits; ++i, bits >>= 8) {
      tail_[tailBlocks_ * kBlock - i] = static_cast<std::uint8_t>(bits);
    }
  }

  /// How many blocks can be taken from `next` in a row.
  std::size_t blocks() const { return blocks_; }
  const std::uint8_t* next() const { return next_; }

  void advance(std::size_t blocks) {
    next_ += blocks * kBlock;
    blocks_ -= blocks;
    beginTailIfDue();
  }
  void beginTailIfDue() {
    if (blocks_ != 0 || tailBlocks_ == 0) return;
    next_ = tail_;
    blocks_ = std::exchange(tailBlocks_, 0);
  }

  void writeDigest() const {
    std::uint32_t feba[4];
    std::uint32_t hgdc[4];
    std::memcpy(feba, &state.feba, sizeof feba);
    std::memcpy(hgdc, &state.hgdc, sizeof hgdc);
    const std::uint32_t words[8] = {feba[3], feba[2], hgdc[3], hgdc[2], feba[1], feba[0], hgdc[1], hgdc[0]};
    for (std::size_t i = 0; i < 8; ++i) {
      for (std::size_t k = 0; k < 4; ++k) {
        (*digest_)[i * 4 + k] = static_cast<std::uint8_t>(words[i] >> (24 - 8 * k));
      }
    }
  }

  State state;

 private:
  const std::uint8_t* next_ = nullptr;
  std::size_t blocks_ = 0;
  std::size_t tailBlocks_ = 0;
  std::uint8_t tail_[2 * kBlock] = {};
  Sha256Digest* digest_ = nullptr;
};

void hashTwoByTwo(std::span<const Bytes> messages, std::span<Sha256Digest> digests) {
  Lane lanes[kLanes];
  std::size_t begun = 0;
  const auto refill = [&](Lane& lane) {
    if (begun == messages.size()) return false;
    lane = Lane(messages[begun], digests[begun]);
    ++begun;
    lane.beginTailIfDue();
    return true;
  };
  std::size_t busy = 0;
  while (busy < kLanes && refill(lanes[busy])) ++busy;
  while (busy == kLanes) {
    const std::size_t blocks = std::min(lanes[0].blocks(), lanes[1].blocks());
    State states[kLanes] = {lanes[0].state, lanes[1].state};
    const std::uint8_t* const next[kLanes] = {lanes[0].next(), lanes[1].next()};
    compress<kLanes>(states, next, blocks);
    for (std::size_t k = kLanes; k-- > 0;) {
      lanes[k].state = states[k];
      lanes[k].advance(blocks);
      if (lanes[k].blocks() != 0) continue;
      lanes[k].writeDigest();
      if (refill(lanes[k])) continue;
      --busy;
      if (k == 0 && busy == 1) lanes[0] = lanes[1];
    }
  }
  if (busy == 0) return;
  for (Lane& last = lanes[0]; last.blocks() != 0;) {
    const std::size_t blocks = last.blocks();
    const std::uint8_t* const next = last.next();
    compress<1>(&last.state, &next, blocks);
    last.advance(blocks);
  }
  lanes[0].writeDigest();
}

bool hasInstructions() noexcept {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  return __builtin_cpu_supports("sse4.1") && __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_SHA) != 0;
}

}  // namespace
#endif

Sha256Lockstep& sha256Lockstep() noexcept {
#if defined(__x86_64__)
  static Sha256Lockstep function = hasInstructions() ? hashTwoByTwo : nullptr;
#else
  static Sha256Lockstep function = nullptr;
#endif
  return function;
}

}  // namespace tks::codesign

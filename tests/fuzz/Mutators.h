#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

// What mutators of inputs share that have checksums, lengths or signatures in them: an input is taken apart, one of its
// parts is changed, and what depends on the part is made to fit again, so that the change gets past the first check.

/// Changes bytes in place; the new size, at most `room`. Of the fuzzing engine; a simple one where inputs are replayed.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t room);

namespace tks::fuzz {

/// One part of an input, changed by the engine.
inline std::string mutated(std::string part, std::size_t room) {
  const std::size_t size = part.size();
  part.resize(std::max(size, room));
  part.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(part.data()), size, part.size()));
  return part;
}

/// Puts an input back in the place of the old one; its size. What does not fit is cut.
inline std::size_t putBack(std::string_view input, std::uint8_t* data, std::size_t room) {
  const std::size_t size = std::min(input.size(), room);
  std::memcpy(data, input.data(), size);
  return size;
}

/// A choice that follows from the engine's seed alone.
class Choice {
 public:
  explicit Choice(unsigned seed) : random_(seed) {}
  std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }
  bool oneIn(std::size_t times) { return below(times) == 0; }

 private:
  std::minstd_rand random_;
};

inline std::uint32_t bigEndian32(std::string_view bytes, std::size_t at) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
  return number;
}

inline void putBigEndian32(std::string& bytes, std::size_t at, std::size_t number) {
  for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(number >> (24 - 8 * i) & 0xFF);
}

}  // namespace tks::fuzz

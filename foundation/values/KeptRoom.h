#pragma once

#include <cstddef>
#include <span>

namespace tks::value {

/// The memory of the document that a thread let go of last, for the next one that it reads: asking the allocator for
/// some kilobytes takes as long as reading several hundred bytes.
///
/// A thread keeps one piece of at most `kMost` bytes, from the first document of that size that it reads until it ends.
/// The bytes of the last document stay in it until the next one, as they stay in any memory that was given back. Any
/// thread.
class KeptRoom {
 public:
  /// With less, allocators are quick.
  static constexpr std::size_t kLeast = 1024;
  static constexpr std::size_t kMost = 16 * 1024;

  /// At least `size` bytes, which is between the two, aligned for anything, with any content. Throws std::bad_alloc.
  static std::span<char> take(std::size_t size);
  /// Gives back what `take` returned, on whatever thread.
  static void giveBack(void* memory, std::size_t size) noexcept;
};

}  // namespace tks::value

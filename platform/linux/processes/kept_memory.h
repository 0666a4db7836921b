#pragma once

#include <cstddef>
#include <span>

namespace tks::gnulinux {

/// Memory of a megabyte and more, in large pages where the system has them: having small pages made, one by one, costs
/// more than the work on them. What was given back last is kept for the next who wants about as much; meanwhile the
/// system may have its pages when it is short of memory. Any thread.
class KeptMemory {
 public:
  /// Less is not worth it.
  static constexpr std::size_t kLeast = std::size_t{1} << 20;

  /// At least `size` bytes, aligned for anything, with any content; empty when there is no memory.
  static std::span<char> take(std::size_t size) noexcept;
  /// Gives back what `take` returned.
  static void giveBack(void* memory, std::size_t size) noexcept;
  /// Lets go of what is kept, and has `dropped` called each time, which does so elsewhere.
  static void drop() noexcept;
  static void whenDropped(void (*dropped)() noexcept) noexcept;
};

/// Tells the system that it may have the pages of much memory, whose content does not matter any more. For less the
/// telling costs more than it is worth.
void offerPages(void* memory, std::size_t size) noexcept;

}  // namespace tks::gnulinux

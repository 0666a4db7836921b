#include "platform/linux/processes/kept_memory.h"

#include <sys/mman.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <utility>

namespace tks::gnulinux {
namespace {

constexpr std::size_t kLargePage = std::size_t{2} << 20;
/// More is not kept.
constexpr std::size_t kMostKept = std::size_t{128} << 20;

using Memory = std::span<char>;

constexpr std::size_t roundedUp(std::size_t size, std::size_t unit) { return (size + unit - 1) / unit * unit; }

void unmap(Memory memory) noexcept {
  if (!memory.empty()) ::munmap(memory.data(), memory.size());
}

/// Begins at the border of a large page.
Memory map(std::size_t size) noexcept {
  void* const found = ::mmap(nullptr, size + kLargePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (found == MAP_FAILED) return {};
  const auto address = reinterpret_cast<std::uintptr_t>(found);
  const std::size_t before = roundedUp(address, kLargePage) - address;
  char* const begin = static_cast<char*>(found) + before;
  unmap({static_cast<char*>(found), before});
  unmap({begin + size, kLargePage - before});
  ::madvise(begin, size, MADV_HUGEPAGE);
  return {begin, size};
}

/// What was given back last.
class Slot {
 public:
  Memory exchange(Memory memory) noexcept {
    const std::scoped_lock lock(mutex_);
    return std::exchange(memory_, memory);
  }

 private:
  std::mutex mutex_;  // guards what follows
  Memory memory_;
};

Slot& slot() {
  static auto& kept = *new Slot;
  return kept;
}

std::atomic<void (*)() noexcept> dropElsewhere = nullptr;

}  // namespace

Memory KeptMemory::take(std::size_t size) noexcept {
  if (size > SIZE_MAX / 2) return {};
  const std::size_t wanted = roundedUp(size, kLargePage);
  const Memory memory = slot().exchange({});
  if (memory.size() >= wanted && memory.size() / 4 <= wanted) return memory;
  unmap(memory);
  return map(wanted);
}

void KeptMemory::giveBack(void* memory, std::size_t size) noexcept {
  const Memory given(static_cast<char*>(memory), size);
  if (size > kMostKept) return unmap(given);
  offerPages(memory, size);
  unmap(slot().exchange(given));
}

void KeptMemory::drop() noexcept {
  unmap(slot().exchange({}));
  if (void (*const dropped)() noexcept = dropElsewhere) dropped();
}

void KeptMemory::whenDropped(void (*dropped)() noexcept) noexcept { dropElsewhere = dropped; }

void offerPages(void* memory, std::size_t size) noexcept {
  constexpr std::uintptr_t kPage = 4096;
  constexpr std::size_t kMuch = std::size_t{8} << 20;
  if (size < kMuch) return;
  const auto begin = reinterpret_cast<std::uintptr_t>(memory);
  const std::uintptr_t first = roundedUp(begin, kPage);
  const std::uintptr_t last = (begin + size) / kPage * kPage;
  if (first < last) ::madvise(reinterpret_cast<void*>(first), last - first, MADV_FREE);
}

}  // namespace tks::gnulinux

#include "platform/linux/text/large_pages.h"

#include <cstdint>

#include <sys/mman.h>

namespace tks::gnulinux {

void preferLargePages(void* memory, std::size_t size) noexcept {
  constexpr std::size_t kLargePage = std::size_t{2} << 20;
  const std::size_t before = (kLargePage - reinterpret_cast<std::uintptr_t>(memory) % kLargePage) % kLargePage;
  if (size < before + kLargePage) return;
  ::madvise(static_cast<char*>(memory) + before, (size - before) / kLargePage * kLargePage, MADV_HUGEPAGE);
}

}  // namespace tks::gnulinux

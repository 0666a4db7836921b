#pragma once

#include <cstddef>

namespace tks::gnulinux {

/// Asks the system for large pages in memory of many megabytes that is about to be filled: faulting 4 KiB pages
/// in costs more than the work on them.
void preferLargePages(void* memory, std::size_t size) noexcept;

}  // namespace tks::gnulinux

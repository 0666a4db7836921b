#pragma once

#include <cstddef>

namespace tks::gnulinux {

/// Asks the system for large pages in memory of many megabytes that is about to be filled: a fault for every page of
/// four KiB takes longer than what is done in it.
void preferLargePages(void* memory, std::size_t size) noexcept;

}  // namespace tks::gnulinux

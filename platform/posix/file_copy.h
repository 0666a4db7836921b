#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

#include <tksinterface/TKSError.h>

namespace tks::posix {

/// Copies what one open file has from its position on to another one, inside of the kernel where that can be done: up
/// to its end, `most` bytes at the most. False, and errno, when that fails.
bool copyBytes(int from, int to, std::uint64_t most = std::numeric_limits<std::uint64_t>::max());

/// See platform::Files::copyContent.
bool copyContent(std::string_view from, std::string_view to, TKSError* error);

}  // namespace tks::posix

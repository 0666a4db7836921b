#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tks::platform::apple {

/// What is known of a download while its bytes come. The system counts them as they were sent, and unpacks a packed
/// body as it comes: what is stored may be longer.
struct DownloadCount {
  /// Bytes of the body that came; those that are announced, 0 or less when none are.
  std::int64_t received = 0;
  std::int64_t announced = 0;
  /// The value of the response's Content-Encoding; empty when it has none.
  std::string_view encoding;
};

/// Whether more than `limit` bytes are stored, will be, or could be after unpacking. DEFLATE makes at most 1,032 bytes
/// of one; of any other packing, and of packings in each other, not a byte is taken.
bool isBeyond(const DownloadCount& count, std::size_t limit);

}  // namespace tks::platform::apple

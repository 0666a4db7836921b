#include "platform/apple/download_bound.h"

#include <algorithm>

#include "foundation/values/Characters.h"

namespace tks::platform::apple {
namespace {

constexpr std::size_t kMostOfADeflatedByte = 1032;

/// Into how many bytes at most one byte that was sent is unpacked.
struct Packing {
  std::string_view name;
  std::size_t mostOfAByte;
};
constexpr Packing kPackings[] = {
    {"", 1},
    {"identity", 1},
    {"gzip", kMostOfADeflatedByte},
    {"x-gzip", kMostOfADeflatedByte},
    {"deflate", kMostOfADeflatedByte},
};

/// As a protocol compares its words. Text::equalIgnoringCase would go by Unicode's rules, and by the system's.
bool isEqualInAscii(std::string_view one, std::string_view other) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return std::ranges::equal(one, other, {}, lower, lower);
}

/// How many bytes may be sent so that no more than the limit is stored.
std::size_t allowedBytes(std::string_view encoding, std::size_t limit) {
  for (const Packing& packing : kPackings) {
    if (isEqualInAscii(trimmed(encoding), packing.name)) return limit / packing.mostOfAByte;
  }
  return 0;
}

}  // namespace

bool isBeyond(const DownloadCount& count, std::size_t limit) {
  const std::int64_t most = std::max(count.received, count.announced);
  return most > 0 && static_cast<std::uint64_t>(most) > allowedBytes(count.encoding, limit);
}

}  // namespace tks::platform::apple

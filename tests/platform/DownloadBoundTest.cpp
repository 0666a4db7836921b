#include "platform/apple/download_bound.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string_view>

// When a download on macOS is ended because of its length: the system unpacks a body as it comes and counts what was
// sent.

namespace {

using tks::platform::apple::isBeyond;

constexpr std::size_t kLimit = 1'032'000;

struct Case {
  std::int64_t received;
  std::int64_t announced;
  std::string_view encoding;
  bool isBeyond;
};

constexpr Case kCases[] = {
    // Nothing came yet, and nothing is announced.
    {0, 0, "", false},
    {0, -1, "", false},
    {0, -1, "br", false},
    {-1, -1, "gzip", false},
    // As it is.
    {1'032'000, -1, "", false},
    {1'032'001, -1, "", true},
    {1'032'000, 1'032'000, "identity", false},
    {1'032'001, 0, "Identity", true},
    {0, 1'032'000, "", false},
    {0, 1'032'001, "", true},
    {10, 1'032'001, "", true},
    {1'032'001, 10, "", true},
    {std::numeric_limits<std::int64_t>::max(), -1, "", true},
    // Packed: a byte becomes 1,032 at most.
    {1'000, -1, "gzip", false},
    {1'001, -1, "gzip", true},
    {0, 1'001, "gzip", true},
    {1'000, -1, "GZIP", false},
    {1'001, -1, "GZip", true},
    {1'000, -1, "x-gzip", false},
    {1'001, -1, "x-gzip", true},
    {1'000, -1, "deflate", false},
    {1'001, -1, " deflate\t", true},
    {1'000, -1, " gzip ", false},
    {1'001, -1, "\u00a0gzip", true},
    // Only letters of ASCII have two cases in a protocol.
    {1, -1, "de\ufb02ate", true},
    // Unpacks to any length, or nobody knows to which.
    {1, -1, "br", true},
    {1, -1, "zstd", true},
    {1, -1, "compress", true},
    {1, -1, "gzip, gzip", true},
    {1, -1, "identity, gzip", true},
    {1, -1, "gzip,", true},
    {1, -1, "unheard-of", true},
    {1, -1, std::string_view("gzip\0", 5), true},
    // Blanks are no name.
    {1'032'000, -1, " \t", false},
};

TEST(DownloadBound, EndsWhatIsOrMayBecomeLongerThanTheLimit) {
  for (const Case& one : kCases) {
    EXPECT_EQ(isBeyond({one.received, one.announced, one.encoding}, kLimit), one.isBeyond)
        << one.received << " of " << one.announced << " bytes, \"" << one.encoding << '"';
  }
}

TEST(DownloadBound, TakesNothingPackedWhereTheLimitIsLessThanAByteMayBecome) {
  EXPECT_TRUE(isBeyond({1, -1, "gzip"}, 1031));
  EXPECT_FALSE(isBeyond({1, -1, "gzip"}, 1032));
  EXPECT_TRUE(isBeyond({1, -1, ""}, 0));
  EXPECT_FALSE(isBeyond({0, -1, ""}, 0));
}

}  // namespace

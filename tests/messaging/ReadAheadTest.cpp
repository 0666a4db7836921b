#include "messaging/ReadAhead.h"

#include <gmock/gmock.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "messaging/FrameReader.h"
#include "tests/support/FailingAllocator.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/MemoryChannels.h"

namespace {

using tks::messaging::ReadAhead;
using tks::test::grantedRequests;

/// Fills the room, at most with so many bytes of a letter; returns how many they were.
std::size_t fill(ReadAhead& ahead, std::size_t awaited, char letter, std::size_t most = SIZE_MAX) {
  const std::span<char> room = ahead.room(awaited);
  const std::size_t count = std::min(room.size(), most);
  if (count > 0) std::memset(room.data(), letter, count);
  ahead.add(count);
  return count;
}

TEST(ReadAhead, HasTheLeastMemoryWhenNothingIsAwaited) {
  ReadAhead ahead(100);
  EXPECT_EQ(fill(ahead, 0, 'a', 60), 60u);
  ahead.take(50);
  EXPECT_EQ(fill(ahead, 0, 'b'), 90u);
  EXPECT_EQ(ahead.bytes(), std::string(10, 'a') + std::string(90, 'b'));
  EXPECT_EQ(fill(ahead, 0, 'c'), 0u) << "it is full";
}

TEST(ReadAhead, HasRoomForAllThatIsAwaited) {
  ReadAhead ahead(100);
  fill(ahead, 0, 'h', 4);
  fill(ahead, 0, 'a', 30);
  ahead.take(4);
  EXPECT_EQ(fill(ahead, 1'000'000, 'b'), 999'970u);
  EXPECT_EQ(ahead.bytes(), std::string(30, 'a') + std::string(999'970, 'b'));
  ahead.take(1'000'000);
  EXPECT_EQ(ahead.room(0).size(), 100u) << "as before";
}

TEST(ReadAhead, TakesMoreMemoryAsMoreComes) {
  constexpr std::size_t kAwaited = std::size_t{100} << 20;
  ReadAhead ahead(100);
  EXPECT_EQ(ahead.room(kAwaited).size(), std::size_t{16} << 20);
  std::size_t filled = 0;
  for (std::size_t count; (count = fill(ahead, kAwaited, 'x')) > 0;) filled += count;
  EXPECT_EQ(filled, kAwaited);
}

TEST(ReadAhead, KeepsWhatItHasGrownToUntilItShrinks) {
  ReadAhead ahead(100);
  fill(ahead, 500'000, 'x');
  ahead.shrink();
  EXPECT_EQ(ahead.bytes().size(), 500'000u) << "there is something in it";
  ahead.take(500'000);
  grantedRequests = 0;
  EXPECT_EQ(ahead.room(500'000).size(), 500'000u);
  ahead.shrink();
  EXPECT_TRUE(ahead.room(500'000).empty());
  EXPECT_TRUE(ahead.room(0).empty());
  grantedRequests = -1;
  EXPECT_EQ(ahead.room(0).size(), 100u);
}

TEST(FrameReaderWithoutMemory, HandsALargeFrameOutInPieces) {
  const std::string whole = tks::test::frame(std::string(1'000'000, 'x'));
  const auto wire = std::make_shared<tks::test::Wire>();
  std::string joined;
  std::vector<std::size_t> sizes;
  joined.reserve(2 * whole.size());
  sizes.reserve(1000);
  const auto reader = std::make_shared<tks::messaging::FrameReader>(
      [&](std::string_view piece) {
        grantedRequests = sizes.empty() ? 0 : -1;  // none for the payload of the frame that was just announced
        joined += piece;
        sizes.push_back(piece.size());
      },
      [](const TKSError&) {});
  reader->start(std::make_unique<tks::test::WireSource>(wire));
  wire->arrive(whole);
  EXPECT_TRUE(tks::test::drainUntil([&] { return joined.size() >= whole.size(); }));
  EXPECT_EQ(joined, whole);
  EXPECT_EQ(sizes.front(), 4u);
  EXPECT_GT(sizes.size(), 5u);
}

}  // namespace

#include "messaging/Frame.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Frames.h"
#include "tests/support/ScopedValue.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using tks::messaging::PieceCutter;
using tks::test::frame;
using tks::test::header;
using tks::test::ScopedValue;

/// Cuts `bytes` into pieces as they arrive in parts; what is left over is appended when the input ends.
std::vector<std::string> cut(const std::vector<std::string>& parts, bool ends = true) {
  PieceCutter cutter;
  std::vector<std::string> pieces;
  std::string ahead;
  const auto handOut = [&](bool ended) {
    while (const std::size_t size = cutter.next(ahead, ended)) {
      pieces.push_back(ahead.substr(0, size));
      ahead.erase(0, size);
    }
  };
  for (const std::string& part : parts) {
    ahead += part;
    handOut(false);
  }
  if (ends) handOut(true);
  return pieces;
}

TEST(Frame, LengthIsFourBytesLittleEndian) {
  char bytes[4] = {};
  tks::messaging::encodeLength(0x01020384u, bytes);
  EXPECT_EQ(std::string_view(bytes, 4), "\x84\x03\x02\x01"s);
  EXPECT_EQ(tks::messaging::decodeLength(bytes), 0x01020384u);
  EXPECT_EQ(tks::messaging::announcedLength("\xFF\xFF\xFF\xFF rest"), 0xFFFFFFFFu);
  static_assert(tks::messaging::announcedLength(std::string_view("\x00\x00\xA0\x00", 4)) == 10485760);
}

TEST(Frame, IsMadeInOneBufferWithTheHeaderInFront) {
  std::string made = "old content";
  tks::messaging::beginFrame(made);
  made += "{}";
  ASSERT_TRUE(tks::messaging::finishFrame(made));
  EXPECT_EQ(made, "\x02\x00\x00\x00{}"s);
  EXPECT_EQ(tks::messaging::payloadOf(made), "{}");
}

TEST(Frame, LengthCountsBytesNotCharacters) {
  std::string made;
  tks::messaging::beginFrame(made);
  made += "\xC3\xBC\xF0\x9F\x98\x80";
  ASSERT_TRUE(tks::messaging::finishFrame(made));
  EXPECT_EQ(made.substr(0, 4), header(6));
}

TEST(Frame, HoldsWhatThirtyTwoBitsCanAnnounce) {
  static_assert(tks::messaging::fitsFrame(0xFFFFFFFFu));
  static_assert(!tks::messaging::fitsFrame(0x100000000u));
}

TEST(PieceCutter, PieceEndsWithItsFrame) {
  EXPECT_THAT(cut({frame("one") + frame("two") + frame("")}), ElementsAre(frame("one"), frame("two"), frame("")));
}

TEST(PieceCutter, HeaderIsNeverCut) {
  EXPECT_THAT(cut({"\x03", "\x00"s, "\x00"s, "\x00"s, "a", "bc"}), ElementsAre(header(3), "a", "bc"));
  EXPECT_THAT(cut({frame("one") + "\x03\x00"s, "\x00\x00"s + "two"}), ElementsAre(frame("one"), frame("two")));
}

TEST(PieceCutter, CutHeaderIsAPieceOnlyOnceTheInputHasEnded) {
  EXPECT_THAT(cut({frame("one") + "\x03\x00"s}, false), ElementsAre(frame("one")));
  EXPECT_THAT(cut({frame("one") + "\x03\x00"s}), ElementsAre(frame("one"), "\x03\x00"s));
}

TEST(PieceCutter, WhatHasArrivedOfAFrameIsAPiece) {
  EXPECT_THAT(cut({header(6) + "ab", "cd", "ef" + frame("next")}),
              ElementsAre(header(6) + "ab", "cd", "ef", frame("next")));
}

TEST(PieceCutter, PieceIsNeverLongerThanTheLargestMessage) {
  const ScopedValue limit(tks_max_msg_size, std::int64_t{10});
  EXPECT_THAT(cut({frame("0123456789")}), ElementsAre(header(10) + "012345", "6789"));
}

TEST(PieceCutter, LimitBelowAHeaderStillMovesOn) {
  const ScopedValue limit(tks_max_msg_size, std::int64_t{0});
  EXPECT_THAT(cut({frame("") + frame("ab")}), ElementsAre(header(0), header(2), "ab"));
}

TEST(PieceCutter, OversizeFrameIsOverWithThePieceThatAnnouncesIt) {
  EXPECT_THAT(cut({header(10485761) + "stray", frame("good")}), ElementsAre(header(10485761) + "stray", frame("good")));
  EXPECT_THAT(cut({"Hello\n", frame("good")}), ElementsAre("Hello\n", frame("good")));
}

TEST(PieceCutter, NegativeLimitCountsAsTheLargestNumber) {
  const ScopedValue limit(tks_max_msg_size, std::int64_t{-1});
  EXPECT_THAT(cut({header(0xFFFFFFFF) + "a", "b"}), ElementsAre(header(0xFFFFFFFF), "ab"));
}

TEST(PieceCutter, LargeFrameIsTwoPieces) {
  const std::string payload(PieceCutter::kMostInPieces + 1, 'x');
  const std::string whole = frame(payload);
  EXPECT_THAT(cut({whole.substr(0, 1000), whole.substr(1000) + frame("next")}),
              ElementsAre(header(static_cast<std::uint32_t>(payload.size())), payload, frame("next")));
  EXPECT_THAT(cut({whole.substr(0, 1000)}, false), ElementsAre(whole.substr(0, 4)));
  EXPECT_THAT(cut({whole.substr(0, 1000)}), ElementsAre(whole.substr(0, 4), whole.substr(4, 996)));
}

TEST(PieceCutter, LargeFrameIsAwaitedUpToItsEndOrToTheLargestMessage) {
  const std::string ahead = header(200'000) + std::string(100'000, 'x');
  PieceCutter cutter;
  EXPECT_EQ(cutter.awaited(), 0u);
  EXPECT_EQ(cutter.next(ahead, false), 4u);
  EXPECT_EQ(cutter.awaited(), 200'000u);
  EXPECT_EQ(cutter.next(std::string_view(ahead).substr(4), false), 0u);
  const ScopedValue limit(tks_max_msg_size, std::int64_t{60'000});
  EXPECT_EQ(cutter.awaited(), 60'000u);
  EXPECT_EQ(cutter.next(std::string_view(ahead).substr(4), false), 60'000u);
  cutter.awaitNothing();
  EXPECT_EQ(cutter.awaited(), 0u);
  EXPECT_EQ(cutter.next("xyz", false), 3u);
}

TEST(PieceCutter, PiecesOfAnyCutsJoinToTheInput) {
  std::mt19937 random(20240117);
  for (int round = 0; round < 200; ++round) {
    std::string input;
    const int frames = static_cast<int>(random() % 5);
    for (int i = 0; i < frames; ++i) input += frame(std::string(random() % 40, 'x'));
    std::vector<std::string> parts;
    for (std::size_t at = 0; at < input.size();) {
      const std::size_t size = 1 + random() % 9;
      parts.push_back(input.substr(at, size));
      at += size;
    }
    std::string joined;
    for (const std::string& piece : cut(parts)) joined += piece;
    EXPECT_EQ(joined, input);
  }
}

}  // namespace

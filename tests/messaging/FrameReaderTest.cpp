#include "messaging/FrameReader.h"

#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/MemoryChannels.h"
#include "tests/support/PlayedTimers.h"
#include "tests/support/ScopedValue.h"

namespace {

using namespace std::string_literals;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::SizeIs;
using tks::messaging::FrameReader;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::frame;
using tks::test::header;
using tks::test::ScopedValue;
using tks::test::Wire;
using tks::test::WireSource;

/// A reader on a wire in memory, and what it hands out.
class FrameReaderTest : public testing::Test {
 protected:
  FrameReaderTest() { makeReader(); }

  void makeReader() {
    reader_ = std::make_shared<FrameReader>(
        [this](std::string_view piece) {
          pieces_.emplace_back(piece);
          if (whenHandedOut_) whenHandedOut_(pieces_.back());
        },
        [this](const TKSError& error) { failures_.push_back(error.localizedDescription); });
  }

  void start() { reader_->start(std::make_unique<WireSource>(wire_)); }
  /// Waits for as many pieces, and looks whether more come.
  std::vector<std::string> pieces(std::size_t count) {
    drainUntil([&] { return pieces_.size() >= count; }, 5s);
    drainFor(2ms);
    return pieces_;
  }

  std::shared_ptr<Wire> wire_ = std::make_shared<Wire>();
  std::shared_ptr<FrameReader> reader_;
  std::function<void(const std::string& piece)> whenHandedOut_;
  std::vector<std::string> pieces_;
  std::vector<std::string> failures_;
};

TEST_F(FrameReaderTest, FiftyFramesInOneWriteAreHandedOutOneByOne) {
  std::string burst;
  std::vector<std::string> frames;
  for (int i = 0; i < 50; ++i) {
    frames.push_back(frame("message " + std::to_string(i)));
    burst += frames.back();
  }
  start();
  wire_->arrive(burst);
  EXPECT_EQ(pieces(50), frames);
}

TEST_F(FrameReaderTest, NothingIsHandedOutBeforeStartReturns) {
  wire_->arrive(frame("early"));
  start();
  EXPECT_THAT(pieces_, IsEmpty());
  EXPECT_THAT(pieces(1), ElementsAre(frame("early")));
}

TEST_F(FrameReaderTest, FrameCutAtEveryOffsetIsHandedOutWholeFromItsHeaderOn) {
  const std::string whole = frame("{\"message_type\":\"hello\"}");
  start();
  for (std::size_t cut = 1; cut < whole.size(); ++cut) {
    pieces_.clear();
    wire_->arrive(whole.substr(0, cut));
    wire_->arrive(whole.substr(cut));
    std::string joined;
    for (const std::string& piece : pieces(cut < 4 ? 1 : 2)) joined += piece;
    EXPECT_EQ(joined, whole);
    EXPECT_GE(pieces_.front().size(), 4u) << "cut at " << cut;
    EXPECT_THAT(pieces_, SizeIs(cut < 4 ? 1 : 2)) << "cut at " << cut;
  }
}

TEST_F(FrameReaderTest, FrameOfOneByteAtATimeIsHandedOut) {
  const std::string whole = frame("0123456789");
  start();
  for (const char c : whole) wire_->arrive(std::string(1, c));
  EXPECT_THAT(pieces(11), ElementsAre(header(10), "0", "1", "2", "3", "4", "5", "6", "7", "8", "9"));
}

TEST_F(FrameReaderTest, FrameOfTheGreatestSizeComesInPiecesThatAreNotTooLong) {
  const std::string whole = frame(std::string(10485760, 'x')) + frame("next");
  start();
  wire_->arrive(whole);
  ASSERT_TRUE(drainUntil([&] { return !pieces_.empty() && pieces_.back() == frame("next"); }));
  std::string joined;
  for (const std::string& piece : pieces_) {
    EXPECT_LE(piece.size(), 10485760u);
    joined += piece;
  }
  EXPECT_EQ(joined, whole);
}

TEST_F(FrameReaderTest, LargeFrameIsHandedOutAsItsHeaderAndItsWholePayload) {
  const std::string payload(FrameReader::kBufferBytes * 5 + 3, 'x');
  start();
  for (int round = 0; round < 2; ++round) {
    pieces_.clear();
    const std::string whole = frame("before") + frame(payload) + frame("after");
    for (std::size_t at = 0; at < whole.size(); at += 99'999) wire_->arrive(whole.substr(at, 99'999));
    EXPECT_THAT(pieces(4), ElementsAre(frame("before"), header(static_cast<std::uint32_t>(payload.size())), payload,
                                       frame("after")));
    reader_->giveMemoryBack();
  }
}

TEST_F(FrameReaderTest, SmallestLargeFrameAndTheLargestSmallOne) {
  const std::string large(FrameReader::kBufferBytes + 1, 'l');
  const std::string small(FrameReader::kBufferBytes, 's');
  start();
  wire_->arrive(frame(large) + frame(small));
  EXPECT_THAT(pieces(4), ElementsAre(header(static_cast<std::uint32_t>(large.size())), large,
                                     frame(small).substr(0, FrameReader::kBufferBytes), "ssss"));
}

TEST_F(FrameReaderTest, WhatCameOfALargeFrameIsHandedOutWhenTheChannelEnds) {
  const std::string half(FrameReader::kBufferBytes, 'x');
  start();
  wire_->arrive(header(200'000) + half);
  EXPECT_THAT(pieces(1), ElementsAre(header(200'000)));
  wire_->end();
  EXPECT_EQ(pieces(3)[1], half);
  EXPECT_EQ(pieces_[2], "");
}

TEST_F(FrameReaderTest, WhatCameOfALargeFrameIsForgottenByAStop) {
  start();
  wire_->arrive(header(200'000) + std::string(FrameReader::kBufferBytes, 'x'));
  pieces(1);
  reader_->stop();
  start();
  wire_->arrive(frame("whole"));
  EXPECT_THAT(pieces(2), ElementsAre(header(200'000), frame("whole")));
}

TEST_F(FrameReaderTest, OneTurnTakesAtMostOneBufferSoThatOtherWorkIsNotHeldUp) {
  start();
  for (int i = 0; i < 64; ++i) wire_->arrive(frame(std::string(FrameReader::kBufferBytes - 4, 'x')));
  bool otherWorkDone = false;
  std::size_t piecesBefore = 0;
  whenHandedOut_ = [&](const std::string&) {
    if (pieces_.size() != 1) return;
    tks::platform::mainLoop().post([&] {
      otherWorkDone = true;
      piecesBefore = pieces_.size();
    });
  };
  ASSERT_TRUE(drainUntil([&] { return pieces_.size() == 64; }));
  EXPECT_TRUE(otherWorkDone);
  EXPECT_LE(piecesBefore, 2u);
}

TEST_F(FrameReaderTest, NothingIsReadWhileTheHostDoesNotDrainItsLoop) {
  start();
  for (int i = 0; i < 1000; ++i) wire_->arrive(frame("waiting"));
  EXPECT_EQ(wire_->unread(), 1000 * frame("waiting").size());
  pieces(1000);
  EXPECT_EQ(wire_->unread(), 0u);
}

TEST_F(FrameReaderTest, EndIsToldAgainAndAgainButNotMoreOftenThanEveryTenMilliseconds) {
  tks::test::PlayedTimers timers;
  start();
  wire_->arrive(frame("last"));
  wire_->end();
  EXPECT_THAT(pieces(2), ElementsAre(frame("last"), ""));
  for (std::size_t told = 1; told <= 5; ++told) {
    timers.pass(9ms);
    ASSERT_EQ(pieces(1 + told).size(), 1 + told);
    timers.pass(1ms);
    ASSERT_EQ(pieces(2 + told).size(), 2 + told);
  }
  EXPECT_THAT(std::vector(pieces_.begin() + 1, pieces_.end()), Each(""));
}

TEST_F(FrameReaderTest, CutHeaderIsHandedOutWhenTheChannelHasEnded) {
  start();
  wire_->arrive("\x05\x00"s);
  drainFor(5ms);
  EXPECT_THAT(pieces_, IsEmpty());
  wire_->end();
  ASSERT_TRUE(drainUntil([&] { return pieces_.size() >= 2; }));
  EXPECT_EQ(pieces_[0], "\x05\x00"s);
  EXPECT_EQ(pieces_[1], "");
}

TEST_F(FrameReaderTest, FailureIsToldInsteadOfPiecesForAsLongAsTheReaderIsStarted) {
  start();
  wire_->arrive(frame("last"));
  wire_->breakDown({"POSIX", 5, "read: input/output error"});
  ASSERT_TRUE(drainUntil([&] { return failures_.size() >= 3; }));
  EXPECT_THAT(pieces_, ElementsAre(frame("last")));
  EXPECT_THAT(failures_, Each("read: input/output error"));
  reader_->stop();
  failures_.clear();
  drainFor(30ms);
  EXPECT_THAT(failures_, IsEmpty());
}

TEST_F(FrameReaderTest, ChannelThatCouldNotBeOpenedCountsAsBroken) {
  reader_->startBroken({"POSIX", 9, "bad file descriptor"});
  EXPECT_THAT(failures_, IsEmpty());
  ASSERT_TRUE(drainUntil([&] { return failures_.size() >= 2; }));
  EXPECT_THAT(failures_, Each("bad file descriptor"));
  EXPECT_THAT(pieces_, IsEmpty());
}

TEST_F(FrameReaderTest, NothingIsHandedOutAfterStop) {
  start();
  wire_->arrive(frame("a") + frame("b") + frame("c"));
  whenHandedOut_ = [&](const std::string&) { reader_->stop(); };
  pieces(1);
  wire_->arrive(frame("d"));
  drainFor(5ms);
  EXPECT_THAT(pieces_, ElementsAre(frame("a")));
}

TEST_F(FrameReaderTest, WhatWasReadAheadIsHandedOutAfterTheNextStartOnTheSameChannel) {
  start();
  wire_->arrive(frame("a") + frame("b") + frame("c"));
  whenHandedOut_ = [&](const std::string&) { reader_->stop(); };
  pieces(1);
  whenHandedOut_ = nullptr;
  start();
  EXPECT_THAT(pieces_, ElementsAre(frame("a")));
  wire_->arrive(frame("d"));
  EXPECT_THAT(pieces(4), ElementsAre(frame("a"), frame("b"), frame("c"), frame("d")));
}

TEST_F(FrameReaderTest, WhatWasReadAheadOfAnotherChannelIsForgotten) {
  start();
  wire_->arrive(frame("a") + frame("of the old launcher"));
  whenHandedOut_ = [&](const std::string&) { reader_->stop(); };
  pieces(1);
  whenHandedOut_ = nullptr;
  wire_ = std::make_shared<Wire>();
  start();
  wire_->arrive(frame("of the new launcher"));
  EXPECT_THAT(pieces(2), ElementsAre(frame("a"), frame("of the new launcher")));
}

TEST_F(FrameReaderTest, StartTakesTheNextByteForAFrame) {
  start();
  wire_->arrive(header(12) + "broken off");
  pieces(1);
  reader_->stop();
  start();
  wire_->arrive(frame("whole"));
  EXPECT_THAT(pieces(2), ElementsAre(header(12) + "broken off", frame("whole")));
}

TEST_F(FrameReaderTest, RestartInsideAPieceGoesOnWithTheNextOneInOrder) {
  start();
  wire_->arrive(frame("a") + frame("b") + frame("c"));
  whenHandedOut_ = [&](const std::string& piece) {
    if (piece != frame("b")) return;
    reader_->stop();
    start();
  };
  EXPECT_THAT(pieces(3), ElementsAre(frame("a"), frame("b"), frame("c")));
}

TEST_F(FrameReaderTest, ReaderMayBeLetGoOfInsideAPiece) {
  start();
  wire_->arrive(frame("a") + frame("b"));
  whenHandedOut_ = [&](const std::string&) {
    reader_->stop();
    reader_.reset();
  };
  EXPECT_THAT(pieces(1), ElementsAre(frame("a")));
}

TEST_F(FrameReaderTest, ReaderMayBeLetGoOfWhenTheEndIsTold) {
  start();
  wire_->end();
  whenHandedOut_ = [&](const std::string&) {
    reader_->stop();
    reader_.reset();
  };
  EXPECT_THAT(pieces(1), ElementsAre(""));
  drainFor(25ms);
  EXPECT_THAT(pieces_, ElementsAre(""));
}

TEST_F(FrameReaderTest, ReaderWithoutOwnerHandsOutNothing) {
  start();
  wire_->arrive(frame("late"));
  reader_.reset();
  drainFor(5ms);
  EXPECT_THAT(pieces_, IsEmpty());
}

TEST_F(FrameReaderTest, FullBufferFromBeforeIsHandedOutBeforeMoreIsRead) {
  start();
  const std::string large = frame(std::string(FrameReader::kBufferBytes / 2 - 4, 'x'));
  wire_->arrive(large + large);
  whenHandedOut_ = [&](const std::string&) { reader_->stop(); };
  pieces(1);
  whenHandedOut_ = nullptr;
  wire_->arrive(large);
  wire_->arrive(frame("end"));
  start();
  EXPECT_THAT(pieces(4), ElementsAre(large, large, large, frame("end")));
}

TEST_F(FrameReaderTest, ChangedLimitCountsFromTheNextPieceOn) {
  start();
  wire_->arrive(header(8) + "ab");
  pieces(1);
  const ScopedValue limit(tks_max_msg_size, std::int64_t{4});
  wire_->arrive("cdefgh");
  EXPECT_THAT(pieces(3), ElementsAre(header(8) + "ab", "cdef", "gh"));
}

TEST_F(FrameReaderTest, EndIsNotToldAfterStop) {
  start();
  wire_->end();
  pieces(1);
  reader_->stop();
  const std::size_t told = pieces_.size();
  drainFor(25ms);
  EXPECT_EQ(pieces_.size(), told);
}

TEST_F(FrameReaderTest, ChannelAfterOneThatEndedIsRead) {
  start();
  wire_->end();
  pieces(1);
  reader_->stop();
  pieces_.clear();
  wire_ = std::make_shared<Wire>();
  start();
  wire_->arrive(frame("a"));
  EXPECT_THAT(pieces(1), ElementsAre(frame("a")));
  wire_->end();
  EXPECT_EQ(pieces(2)[1], "");
}

TEST_F(FrameReaderTest, ChannelAfterOneThatFailedEndsInGoodOrder) {
  start();
  wire_->breakDown({"POSIX", 5, "broken"});
  ASSERT_TRUE(drainUntil([&] { return !failures_.empty(); }));
  reader_->stop();
  failures_.clear();
  wire_ = std::make_shared<Wire>();
  start();
  wire_->end();
  EXPECT_EQ(pieces(1).front(), "");
  EXPECT_THAT(failures_, IsEmpty());
}

TEST_F(FrameReaderTest, StartLetsGoOfTheChannelBefore) {
  start();
  const std::shared_ptr<Wire> before = std::exchange(wire_, std::make_shared<Wire>());
  wire_->arrive(frame("a"));
  start();
  before->arrive(frame("nobody reads this"));
  EXPECT_THAT(pieces(1), ElementsAre(frame("a")));
  EXPECT_EQ(before->unread(), frame("nobody reads this").size());
}

TEST_F(FrameReaderTest, ChannelThatCouldNotBeOpenedTakesThePlaceOfTheOneBefore) {
  start();
  wire_->arrive(frame("a") + frame("read ahead"));
  whenHandedOut_ = [&](const std::string&) { reader_->stop(); };
  pieces(1);
  whenHandedOut_ = nullptr;
  start();
  reader_->startBroken({"POSIX", 9, "bad file descriptor"});
  wire_->arrive(frame("b"));
  ASSERT_TRUE(drainUntil([&] { return failures_.size() >= 2; }));
  EXPECT_THAT(pieces_, ElementsAre(frame("a")));
  // What was read ahead of it is forgotten.
  start();
  EXPECT_THAT(pieces(2), ElementsAre(frame("a"), frame("b")));
}

}  // namespace

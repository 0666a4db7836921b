#include "messaging/SendingQueue.h"

#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tksinterface/TKSConstants.h>

#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/MemoryChannels.h"
#include "tests/support/ScopedValue.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::messaging::SendingQueue;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::frame;
using tks::test::LogRecorder;
using tks::test::payloads;
using tks::test::ScopedValue;
using tks::test::Wire;
using tks::test::WireSink;

class SendingQueueTest : public testing::Test {
 protected:
  SendingQueueTest() { queue_->open(std::make_shared<WireSink>(wire_)); }
  /// Waiting bytes keep their queue alive; on a wire that nobody reads any more, for ever.
  ~SendingQueueTest() override {
    if (queue_) queue_->abandon();
  }

  std::shared_ptr<Wire> wire_ = std::make_shared<Wire>();
  std::shared_ptr<SendingQueue> queue_ = std::make_shared<SendingQueue>();
  LogRecorder log_;
};

TEST_F(SendingQueueTest, FrameIsWrittenAtOnceOnTheCallersThread) {
  queue_->send(frame("one"));
  EXPECT_EQ(wire_->written, frame("one"));
  EXPECT_EQ(wire_->writes, 1u);
  EXPECT_EQ(queue_->waitingBytes(), 0u);
  EXPECT_FALSE(wire_->writerWaits());
}

TEST_F(SendingQueueTest, ChannelIsToldOfTheSizeBeforeTheFirstByte) {
  wire_->room = 0;
  queue_->send(frame("size"));
  EXPECT_THAT(wire_->expected, ElementsAre(8u));
}

TEST_F(SendingQueueTest, WhatAFullChannelRefusesFollowsInOrderWhenItDrains) {
  wire_->room = 5;
  queue_->send(frame("one"));
  queue_->send(frame("two"));
  queue_->send(frame("three"));
  EXPECT_EQ(wire_->written, frame("one").substr(0, 5));
  EXPECT_EQ(queue_->waitingBytes(), frame("one").size() - 5 + frame("two").size() + frame("three").size());

  std::string heard = wire_->take(4);
  drainUntil([&] { return wire_->written.size() == 4; });
  heard += wire_->take();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  heard += wire_->take();
  EXPECT_EQ(heard, frame("one") + frame("two") + frame("three"));
  queue_->send(frame("four"));
  EXPECT_EQ(wire_->written, frame("four"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SendingQueueTest, NewFrameNeverOvertakesWhatWaits) {
  wire_->room = 5;
  queue_->send(frame("one"));
  std::string heard = wire_->take();  // there is room again, but the rest of "one" is first
  queue_->send(frame("two"));
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  EXPECT_EQ(heard + wire_->written, frame("one") + frame("two"));
}

TEST_F(SendingQueueTest, WritesOfAByteEachKeepFramesWhole) {
  wire_->mostPerWrite = 1;
  queue_->send(frame("one"));
  queue_->send(frame("two"));
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  EXPECT_THAT(payloads(wire_->written), ElementsAre("one", "two"));
}

TEST_F(SendingQueueTest, ManyFramesWaitAndLeaveInOrder) {
  wire_->room = 0;
  std::string sent;
  for (int i = 0; i < 20000; ++i) {
    const std::string next = frame(std::to_string(i));
    queue_->send(next);
    sent += next;
  }
  std::string heard;
  while (heard.size() < sent.size()) {
    heard += wire_->take(1000);
    ASSERT_TRUE(drainUntil([&] { return wire_->room == 0 || queue_->waitingBytes() == 0; }));
    heard += wire_->take(0);
  }
  EXPECT_EQ(heard, sent);
}

TEST_F(SendingQueueTest, FourMessagesOfTheLargestSizeMayWaitAndNoMore) {
  const ScopedValue limit(tks_max_msg_size, std::int64_t{10});
  wire_->room = 0;
  for (int i = 0; i < 4; ++i) queue_->send(frame("0123456789"));
  EXPECT_EQ(queue_->waitingBytes(), 56u);
  EXPECT_THAT(log_.lines(), IsEmpty());
  queue_->send(frame("x"));
  EXPECT_EQ(queue_->waitingBytes(), 56u);
  EXPECT_THAT(log_.texts(8), ElementsAre("Write message failed: Error Domain=com.tarvo.kovra.TKSUtil Code=0 "
                                         "\"56 bytes wait already, no room for 5 more.\""));
  wire_->take();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  EXPECT_THAT(payloads(wire_->written), ElementsAre("0123456789", "0123456789", "0123456789", "0123456789"));
  queue_->send(frame("x"));
  EXPECT_THAT(payloads(wire_->written).back(), "x");
}

TEST_F(SendingQueueTest, FrameThatTheChannelTakesAtOnceMayBeOfAnySize) {
  const ScopedValue limit(tks_max_msg_size, std::int64_t{10});
  EXPECT_FALSE(queue_->send(frame(std::string(60, 'x'))));
  EXPECT_EQ(wire_->written, frame(std::string(60, 'x')));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SendingQueueTest, FirstFrameWaitsWhateverItsSizeAndNothingMoreFindsRoomAfterIt) {
  const ScopedValue limit(tks_max_msg_size, std::int64_t{10});
  wire_->room = 5;
  EXPECT_FALSE(queue_->send(frame(std::string(100, 'x'))));
  EXPECT_EQ(queue_->waitingBytes(), 99u);
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_TRUE(queue_->send(frame("x")));
  std::string heard = wire_->take();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  EXPECT_EQ(heard + wire_->written, frame(std::string(100, 'x')));
}

TEST_F(SendingQueueTest, RefusedFrameLeavesNoByteBehind) {
  const ScopedValue limit(tks_max_msg_size, std::int64_t{10});
  wire_->room = 5;
  queue_->send(frame("one"));
  const auto refusal = queue_->send(frame(std::string(60, 'x')));
  ASSERT_TRUE(refusal);
  EXPECT_FALSE(refusal->channelFailed);
  EXPECT_EQ(refusal->error.localizedDescription, "2 bytes wait already, no room for 64 more.");
  EXPECT_EQ(log_.texts(8).size(), 1u);
  std::string heard = wire_->take();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  EXPECT_EQ(heard + wire_->written, frame("one"));
}

TEST_F(SendingQueueTest, CallerIsToldWhetherTheChannelFailed) {
  wire_->readerIsGone = true;
  const auto refusal = queue_->send(frame("one"));
  ASSERT_TRUE(refusal);
  EXPECT_TRUE(refusal->channelFailed);
  queue_->close();
  const auto second = queue_->send(frame("two"));
  ASSERT_TRUE(second);
  EXPECT_FALSE(second->channelFailed);
}

TEST_F(SendingQueueTest, FailingWriteIsLoggedAtLevelEight) {
  wire_->writeFailure = TKSError{"POSIX", 28, "write: no space left on device"};
  queue_->send(frame("one"));
  EXPECT_THAT(log_.texts(8),
              ElementsAre("Write message failed: Error Domain=POSIX Code=28 \"write: no space left on device\""));
  EXPECT_EQ(queue_->waitingBytes(), 0u);
  wire_->writeFailure.reset();
  queue_->send(frame("two"));
  EXPECT_EQ(wire_->written, frame("two"));
}

TEST_F(SendingQueueTest, MissingReaderIsAFailingWrite) {
  wire_->readerIsGone = true;
  queue_->send(frame("one"));
  EXPECT_THAT(log_.texts(8),
              ElementsAre("Write message failed: Error Domain=com.tarvo.kovra.TKSUtil Code=0 \"The other "
                          "end of the channel is gone.\""));
}

TEST_F(SendingQueueTest, WhatWaitsIsDroppedWithOneLineWhenTheChannelBreaks) {
  wire_->room = 5;
  queue_->send(frame("one"));
  queue_->send(frame("two"));
  wire_->writeFailure = TKSError{"POSIX", 32, "write: broken pipe"};
  wire_->take();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  EXPECT_THAT(log_.texts(8), ElementsAre("Write message failed: Error Domain=POSIX Code=32 \"write: broken pipe\""));
}

TEST_F(SendingQueueTest, SendingWithoutAChannelFailsWithALine) {
  queue_->close();
  queue_->send(frame("one"));
  EXPECT_THAT(log_.texts(8), ElementsAre("Write message failed: Error Domain=com.tarvo.kovra.TKSUtil Code=0 \"There is "
                                         "no channel to write to.\""));
  EXPECT_THAT(wire_->written, IsEmpty());
}

TEST_F(SendingQueueTest, WhatWaitsIsWrittenAlsoAfterTheHostWasClosed) {
  wire_->room = 5;
  queue_->send(frame("disconnect"));
  queue_->close();
  std::string heard = wire_->take();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  EXPECT_EQ(heard + wire_->written, frame("disconnect"));
}

TEST_F(SendingQueueTest, WhatWaitsIsWrittenAlsoAfterTheOwnerIsGone) {
  wire_->room = 5;
  queue_->send(frame("disconnect"));
  std::weak_ptr<SendingQueue> weak = queue_;
  queue_->close();
  queue_.reset();
  EXPECT_FALSE(weak.expired());
  std::string heard = wire_->take();
  ASSERT_TRUE(drainUntil([&] { return weak.expired(); }));
  EXPECT_EQ(heard + wire_->written, frame("disconnect"));
}

TEST_F(SendingQueueTest, WhatWaitsStaysInFrontWhenTheSameChannelIsOpenedAgain) {
  wire_->room = 5;
  queue_->send(frame("old"));
  queue_->close();
  queue_->open(std::make_shared<WireSink>(wire_));
  queue_->send(frame("new"));
  std::string heard = wire_->take();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  EXPECT_EQ(heard + wire_->written, frame("old") + frame("new"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SendingQueueTest, ChannelThatIsOpenedAgainStaysOpenOnceWhatWaitedIsWritten) {
  wire_->room = 5;
  queue_->send(frame("old"));
  queue_->close();
  queue_->open(std::make_shared<WireSink>(wire_));
  wire_->take();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  wire_->take();
  queue_->send(frame("new"));
  EXPECT_EQ(wire_->written, frame("new"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SendingQueueTest, ChannelThatTookThePlaceOfAFullOneDrainsOfItself) {
  wire_->room = 0;
  queue_->send(frame("never read"));
  const auto next = std::make_shared<Wire>();
  next->room = 0;
  queue_->open(std::make_shared<WireSink>(next));
  queue_->send(frame("new"));
  EXPECT_EQ(queue_->waitingBytes(), frame("new").size());
  next->take();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  EXPECT_EQ(next->written, frame("new"));
}

TEST_F(SendingQueueTest, AbandonLetsGoOfTheChannelAtOnce) {
  const auto sink = std::make_shared<WireSink>(wire_);
  queue_->open(sink);
  queue_->abandon();
  EXPECT_EQ(sink.use_count(), 1);
  queue_->send(frame("late"));
  EXPECT_THAT(wire_->written, IsEmpty());
  EXPECT_EQ(log_.texts(8).size(), 1u);
}

TEST_F(SendingQueueTest, WhatWaitsForAnotherChannelIsNotSentToThisOne) {
  wire_->room = 5;
  queue_->send(frame("of the old conversation"));
  const auto next = std::make_shared<Wire>();
  queue_->open(std::make_shared<WireSink>(next));
  EXPECT_THAT(
      log_.texts(8),
      ElementsAre("Write message failed: Error Domain=com.tarvo.kovra.TKSUtil Code=0 \"Another channel took the "
                  "place of the one that 22 bytes waited for.\""));
  queue_->send(frame("new"));
  wire_->take();
  drainFor(5ms);
  EXPECT_EQ(next->written, frame("new"));
  EXPECT_THAT(wire_->written, IsEmpty());
}

TEST_F(SendingQueueTest, AbandonDropsWhatWaits) {
  wire_->room = 5;
  queue_->send(frame("one"));
  queue_->abandon();
  EXPECT_EQ(queue_->waitingBytes(), 0u);
  wire_->take();
  drainFor(5ms);
  EXPECT_THAT(wire_->written, IsEmpty());
}

/// A sink that passes everything on to a wire.
class ForwardingSink : public tks::platform::ByteSink {
 public:
  explicit ForwardingSink(std::shared_ptr<Wire> wire) : sink_(std::move(wire)) {}
  tks::platform::ChannelIdentity identity() const override { return sink_.identity(); }
  tks::platform::Transfer write(std::span<const char> bytes) override { return sink_.write(bytes); }
  void expect(std::size_t size) override { sink_.expect(size); }
  void whenWritable(std::function<void()> ready) override { sink_.whenWritable(std::move(ready)); }

 private:
  WireSink sink_;
};

/// A sink that has no memory left to note who waits for room, at first.
class ForgetfulSink final : public ForwardingSink {
 public:
  using ForwardingSink::ForwardingSink;
  void whenWritable(std::function<void()> ready) override {
    if (std::exchange(forgetful_, false)) throw std::bad_alloc();
    ForwardingSink::whenWritable(std::move(ready));
  }

 private:
  bool forgetful_ = true;
};

/// A sink that counts how often somebody waits for room.
class CountingSink final : public ForwardingSink {
 public:
  using ForwardingSink::ForwardingSink;
  void whenWritable(std::function<void()> ready) override {
    ++waits;
    ForwardingSink::whenWritable(std::move(ready));
  }
  int waits = 0;
};

TEST_F(SendingQueueTest, RoomIsWaitedForOnceHoweverManyFramesWait) {
  const auto sink = std::make_shared<CountingSink>(wire_);
  queue_->open(sink);
  wire_->room = 5;
  for (const char* payload : {"first", "second", "third"}) EXPECT_EQ(queue_->send(frame(payload)), std::nullopt);
  EXPECT_EQ(sink->waits, 1);
}

TEST_F(SendingQueueTest, NextFrameTakesAlongWhatThereWasNoMemoryToWaitFor) {
  queue_->open(std::make_shared<ForgetfulSink>(wire_));
  wire_->room = 5;
  EXPECT_THROW(queue_->send(frame("one")), std::bad_alloc);
  queue_->send(frame("two"));
  std::string heard = wire_->take();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));
  heard += wire_->take();
  EXPECT_EQ(heard, frame("one") + frame("two"));
}

TEST_F(SendingQueueTest, BufferOfAWrittenFrameIsUsedAgain) {
  std::string first = queue_->takeBuffer();
  first = frame(std::string(500, 'x'));
  const char* const place = first.data();
  queue_->send(std::move(first));
  const std::string again = queue_->takeBuffer();
  EXPECT_EQ(again.data(), place);
  EXPECT_THAT(again, IsEmpty());
}

TEST_F(SendingQueueTest, FramesOfEightThreadsStayWholeWhileTheChannelTakesALittleAtATime) {
  constexpr int kThreads = 8;
  constexpr int kFrames = 2000;
  const auto slow = std::make_shared<Wire>();
  slow->mostPerWrite = 100;
  queue_->open(std::make_shared<WireSink>(slow));
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kFrames; ++i) {
        queue_->send(
            frame(std::to_string(t) + ":" + std::to_string(i) + std::string(static_cast<std::size_t>(i % 90), 'x')));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  ASSERT_TRUE(drainUntil([&] { return queue_->waitingBytes() == 0; }));

  std::vector<int> next(kThreads, 0);
  for (const std::string& payload : payloads(slow->written)) {
    const auto thread = static_cast<std::size_t>(payload[0] - '0');
    ASSERT_EQ(payload, std::to_string(thread) + ":" + std::to_string(next[thread]) +
                           std::string(static_cast<std::size_t>(next[thread] % 90), 'x'));
    ++next[thread];
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kFrames));
}

}  // namespace

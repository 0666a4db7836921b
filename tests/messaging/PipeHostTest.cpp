#include <gmock/gmock.h>

#include <string>
#include <thread>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSMessageHost.h>

#include "tests/messaging/MessageHosts.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/MemoryChannels.h"
#include "tests/support/ScopedValue.h"
#include "tests/support/TemporaryFolder.h"

// Opening and closing a message host on the pipe.

namespace {

using namespace std::string_literals;
using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::frame;
using tks::test::header;
using tks::test::kHello;
using tks::test::LogLine;
using tks::test::messageOf;
using tks::test::payloads;
using tks::test::PipeHostTest;
using tks::test::RecordingDelegate;
using tks::test::Wire;

TEST_F(PipeHostTest, OpeningAndClosingAreLogged) {
  log_.clear();
  host_.openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(host_.isOpened);
  EXPECT_EQ(host_.messageHandler, &delegate_);
  host_.close();
  EXPECT_FALSE(host_.isOpened);
  EXPECT_EQ(host_.messageHandler, nullptr);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Open message host with handler."},
                                        LogLine{2, "Open message host with handler done."},
                                        LogLine{2, "Close message host."}, LogLine{2, "Close message host done."}));
}

TEST_F(PipeHostTest, ReassemblyIsLeftAloneByCloseAndEmptiedByTheNextOpen) {
  host_.openWithMessengeHandler(&delegate_);
  host_.onMessage(header(42) + "part");
  host_.close();
  EXPECT_EQ(host_.pendingDataSize, 38u);
  EXPECT_EQ(host_.receivedData.size(), 4u);
  host_.openWithMessengeHandler(&delegate_);
  EXPECT_EQ(host_.pendingDataSize, 0u);
  EXPECT_THAT(host_.receivedData, IsEmpty());
  host_.onMessage(frame(kHello));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

TEST_F(PipeHostTest, BurstArrivesWholeAndInOrder) {
  host_.openWithMessengeHandler(&delegate_);
  std::string burst;
  for (int i = 0; i < 50; ++i) burst += frame("{\"message_type\":\"" + std::to_string(i) + "\",\"message\":\"\"}");
  channels_.input->arrive(burst);
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 50; }));
  for (int i = 0; i < 50; ++i) EXPECT_EQ(delegate_.types()[static_cast<std::size_t>(i)], std::to_string(i));
}

TEST_F(PipeHostTest, PeerThatEndsBetweenFramesIsTheFatalErrorAboutAnEmptyMessage) {
  host_.openWithMessengeHandler(&delegate_);
  channels_.input->end();
  ASSERT_TRUE(drainUntil([&] { return delegate_.failures.size() >= 3; }));
  EXPECT_THAT(delegate_.failures, Each(StartsWith("Message data size ( 0 ) less than 'sizeOfSize'")));
  host_.close();
  const std::size_t told = delegate_.failures.size();
  drainFor(30ms);
  EXPECT_EQ(delegate_.failures.size(), told);
}

TEST_F(PipeHostTest, PeerThatEndsInsideAFrameIsTheFatalErrorAboutPendingData) {
  host_.openWithMessengeHandler(&delegate_);
  channels_.input->arrive(header(300) + std::string(150, 'x'));
  channels_.input->end();
  ASSERT_TRUE(drainUntil([&] { return !delegate_.failures.empty(); }));
  EXPECT_EQ(delegate_.failures.front(), "Message data empty ( 0 ), pending data expected.");
}

TEST_F(PipeHostTest, PeerThatEndsInsideAHeaderIsTheFatalErrorAboutAShortPiece) {
  host_.openWithMessengeHandler(&delegate_);
  channels_.input->arrive("\x05\x00"s);
  channels_.input->end();
  ASSERT_TRUE(drainUntil([&] { return !delegate_.failures.empty(); }));
  EXPECT_EQ(delegate_.failures.front(), "Message data size ( 2 ) less than 'sizeOfSize', no pending data.");
}

TEST_F(PipeHostTest, BrokenInputIsLoggedAndLooksLikeItsEnd) {
  host_.openWithMessengeHandler(&delegate_);
  channels_.input->breakDown({"POSIX", 5, "read standard input: input/output error"});
  ASSERT_TRUE(drainUntil([&] { return !delegate_.failures.empty(); }));
  EXPECT_THAT(delegate_.failures.front(), StartsWith("Message data size ( 0 ) less than 'sizeOfSize'"));
  EXPECT_TRUE(
      log_.has(8, "Read message failed: Error Domain=POSIX Code=5 \"read standard input: input/output error\""));
}

TEST_F(PipeHostTest, ProcessWithoutStandardHandlesOpensAndReportsIt) {
  channels_.input = nullptr;
  channels_.output = nullptr;
  host_.openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(host_.isOpened);
  ASSERT_TRUE(drainUntil([&] { return !delegate_.failures.empty(); }));
  host_.sendMessage(messageOf("hello"));
  EXPECT_TRUE(log_.has(8,
                       "Write message failed: Error Domain=com.tarvo.kovra.TKSUtil Code=0 \"There is no channel to "
                       "write to.\""));
}

TEST_F(PipeHostTest, ReadAheadOfAnOldPipeNeverReachesTheNextConversation) {
  host_.openWithMessengeHandler(&delegate_);
  delegate_.onMessage = [&](const TKSMessage&) { host_.close(); };
  channels_.input->arrive(frame(kHello) + frame(R"({"message_type":"stale","message":""})"));
  ASSERT_TRUE(drainUntil([&] { return !host_.isOpened; }));
  delegate_.onMessage = nullptr;

  channels_.input = std::make_shared<Wire>();
  channels_.output = std::make_shared<Wire>();
  host_.openWithMessengeHandler(&delegate_);
  channels_.input->arrive(frame(R"({"message_type":"fresh","message":""})"));
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 2; }));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello", "fresh"));
  host_.sendMessage(messageOf("hello"));
  EXPECT_THAT(payloads(channels_.output->written), ElementsAre(kHello));
}

TEST_F(PipeHostTest, ReadAheadOfTheSamePipeIsDeliveredAfterTheNextOpen) {
  host_.openWithMessengeHandler(&delegate_);
  delegate_.onMessage = [&](const TKSMessage&) { host_.close(); };
  channels_.input->arrive(frame(kHello) + frame(R"({"message_type":"next","message":""})"));
  ASSERT_TRUE(drainUntil([&] { return !host_.isOpened; }));
  delegate_.onMessage = nullptr;
  host_.openWithMessengeHandler(&delegate_);
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 2; }));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello", "next"));
}

TEST_F(PipeHostTest, OpeningAnOpenHostAgainGoesOnWithTheNewDelegate) {
  host_.openWithMessengeHandler(&delegate_);
  RecordingDelegate next;
  host_.openWithMessengeHandler(&next);
  channels_.input->arrive(frame(kHello));
  ASSERT_TRUE(drainUntil([&] { return !next.messages.empty(); }));
  EXPECT_THAT(delegate_.messages, IsEmpty());
}

TEST_F(PipeHostTest, HostDestroyedWhileOpenDeliversNothingMore) {
  {
    TKSMessageHost host(tksMessageHostTypeInterface);
    host.openWithMessengeHandler(&delegate_);
    channels_.input->arrive(frame(kHello));
  }
  drainFor(5ms);
  EXPECT_THAT(delegate_.messages, IsEmpty());
}

TEST_F(PipeHostTest, EverythingIsDeliveredOnTheThreadThatDrainsTheLoop) {
  open();
  std::vector<std::thread::id> threads;
  delegate_.onMessage = [&](const TKSMessage&) { threads.push_back(std::this_thread::get_id()); };
  delegate_.onFailure = [&](const std::string&) { threads.push_back(std::this_thread::get_id()); };
  channels_.input->arrive(frame(kHello) + frame("no json"));
  EXPECT_THAT(threads, IsEmpty()) << "nothing is delivered before the loop runs";
  std::thread drains([&] {
    drainUntil([&] { return threads.size() == 2; });
    EXPECT_THAT(threads, ElementsAre(std::this_thread::get_id(), std::this_thread::get_id()));
  });
  drains.join();
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
  EXPECT_EQ(delegate_.failures.size(), 1u);
  TKSMainLoop::drain();  // back to the thread of the other tests
}

TEST_F(PipeHostTest, DelegateIsNotOwned) {
  open();
  host_.close();
  {
    RecordingDelegate shortLived;
    host_.openWithMessengeHandler(&shortLived);
    host_.onMessage(frame(kHello));
    EXPECT_THAT(shortLived.types(), ElementsAre("hello"));
    host_.close();
  }
  host_.handleFatalError("nobody hears");
  host_.onMessage(frame(kHello));
  EXPECT_THAT(delegate_.messages, IsEmpty());
}

}  // namespace

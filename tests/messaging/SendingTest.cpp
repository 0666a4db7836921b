#include <gmock/gmock.h>

#include <new>
#include <string>
#include <string_view>
#include <vector>

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

// What a message host writes, and what it says of it.

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using tks::test::frame;
using tks::test::kHello;
using tks::test::linesWithoutTrace;
using tks::test::LogLine;
using tks::test::messageOf;
using tks::test::payloads;
using tks::test::PipeHostTest;

class SendingTest : public PipeHostTest {};

TEST_F(SendingTest, SendingWritesOneFrameAndItsLines) {
  host_.openWithMessengeHandler(&delegate_);
  log_.clear();
  host_.sendMessage(messageOf("hello"));
  EXPECT_EQ(channels_.output->written, frame(kHello));
  EXPECT_EQ(channels_.output->writes, 1u);
  const auto lines = log_.lines();
  ASSERT_EQ(lines.size(), 3u);
  const std::string trace =
      R"(\[)" + std::to_string(::getpid()) + R"(:[0-9]+\]\[TKSMessageHost: sendMessage:\] line:[0-9]+)";
  EXPECT_EQ(lines[0].level, 1);
  EXPECT_THAT(lines[0].text, MatchesRegex(trace));
  EXPECT_EQ(lines[1], (LogLine{2, "Send message string: "s + kHello}));
  EXPECT_EQ(lines[2].level, 1);
  EXPECT_THAT(lines[2].text, MatchesRegex(trace));
  EXPECT_NE(lines[0].text, lines[2].text) << "each names its own line";
}

TEST_F(SendingTest, SentTextIsLoggedMaskedAndSentAsItIs) {
  host_.openWithMessengeHandler(&delegate_);
  TKSMessage mail = messageOf("hello");
  mail.message = "jane.roe@a.example";
  host_.sendMessage(mail);
  EXPECT_TRUE(log_.has(2, R"(Send message string: {"message":"jane.***@a.example","message_type":"hello"})"));
  EXPECT_THAT(payloads(channels_.output->written),
              ElementsAre(R"({"message":"jane.roe@a.example","message_type":"hello"})"));
}

TEST_F(SendingTest, SendingBeforeOpenAndAfterCloseIsAbandonedWithAWarning) {
  const std::vector<LogLine> expected = {{2, "Send message string: "s + kHello},
                                         {4, "Message host already closed, abandon sending message."}};
  log_.clear();
  host_.sendMessage(messageOf("hello"));
  EXPECT_EQ(linesWithoutTrace(log_), expected);
  EXPECT_EQ(log_.texts(1).size(), 1u);
  host_.openWithMessengeHandler(&delegate_);
  host_.close();
  log_.clear();
  host_.sendMessage(messageOf("hello"));
  EXPECT_EQ(linesWithoutTrace(log_), expected);
  EXPECT_THAT(channels_.output->written, IsEmpty());
}

TEST_F(SendingTest, MessageThatHasNoTextIsNotSent) {
  host_.openWithMessengeHandler(&delegate_);
  log_.clear();
  TKSMessage bad = messageOf("hello");
  bad.message = TKSDate{1};
  host_.sendMessage(bad);
  EXPECT_EQ(linesWithoutTrace(log_),
            (std::vector<LogLine>{{2, "Send message string: (null)"},
                                  {8,
                                   "Parse TKSMessage to string failed: Error Domain=messages.tarvo.example Code=0 "
                                   "\"Invalid type in JSON write (date)\""}}));
  EXPECT_THAT(channels_.output->written, IsEmpty());
  host_.sendMessage(messageOf("hello"));
  EXPECT_THAT(payloads(channels_.output->written), ElementsAre(kHello));
}

TEST_F(SendingTest, FailingWriteIsLoggedAndTheHostStaysOpen) {
  host_.openWithMessengeHandler(&delegate_);
  channels_.output->writeFailure = TKSError{"POSIX", 32, "write standard output: broken pipe"};
  host_.sendMessage(messageOf("hello"));
  EXPECT_THAT(log_.texts(8),
              ElementsAre("Write message failed: Error Domain=POSIX Code=32 \"write standard output: broken pipe\""));
  EXPECT_TRUE(host_.isOpened);
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(SendingTest, LogCallbackMaySendInsideTheLinesOfASending) {
  host_.openWithMessengeHandler(&delegate_);
  bool once = true;
  TKSILog::sharedInstance().setLogBlock([&](std::int32_t, const std::string& line) {
    if (!line.starts_with("Send message string") || !std::exchange(once, false)) return;
    host_.sendMessage(messageOf("disconnect"));
  });
  host_.sendMessage(messageOf("hello"));
  EXPECT_THAT(payloads(channels_.output->written),
              ElementsAre(R"({"message":"disconnect","message_type":"disconnect"})", kHello));
}

/// The record is turned into text before anybody asks whether the host is open.
TEST_F(SendingTest, RecordThatHasNoTextIsSaidSoByAClosedHostToo) {
  open();
  host_.close();
  log_.clear();
  TKSMessage bad = messageOf("hello");
  bad.message = TKSDate{1};
  host_.sendMessage(bad);
  EXPECT_TRUE(log_.has(2, "Send message string: (null)"));
  EXPECT_THAT(log_.texts(8),
              ElementsAre("Parse TKSMessage to string failed: Error Domain=messages.tarvo.example Code=0 "
                          "\"Invalid type in JSON write (date)\""));
  EXPECT_THAT(log_.texts(4), IsEmpty());
  EXPECT_THAT(channels_.output->written, IsEmpty());
}

TEST_F(SendingTest, FrameThatThereIsNoMemoryForIsNotSentAndTheNextOneIs) {
  open();
  channels_.output->onWrite = [](std::string_view) { throw std::bad_alloc(); };
  host_.sendMessage(messageOf("hello"));
  EXPECT_THAT(log_.texts(8), ElementsAre("Transfer string to data blob failed."));
  EXPECT_TRUE(host_.isOpened);
  EXPECT_THAT(delegate_.failures, IsEmpty());
  channels_.output->onWrite = nullptr;
  channels_.output->written.clear();
  host_.sendMessage(messageOf("hello"));
  EXPECT_THAT(payloads(channels_.output->written), ElementsAre(kHello));
}

TEST_F(SendingTest, FrameGoesOutInOneWriteWithItsLengthInFront) {
  open();
  TKSMessage message;
  message.messageType = "\xC3\xA4";
  host_.sendMessage(message);
  // Bytes are counted, not characters.
  EXPECT_EQ(channels_.output->written, "\x15\0\0\0"s + "{\"message_type\":\"\xC3\xA4\"}");
  EXPECT_EQ(channels_.output->writes, 1u);
}

}  // namespace

#include <gmock/gmock.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
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

// What a message host makes of the pieces that it is given.

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::FakeHostProcess;
using tks::test::frame;
using tks::test::header;
using tks::test::kHello;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::MemoryChannels;
using tks::test::messageOf;
using tks::test::parseFailure;
using tks::test::payloads;
using tks::test::RecordingDelegate;
using tks::test::ScopedValue;

class ReceivingTest : public testing::Test {
 protected:
  ReceivingTest() {
    host_ = std::make_unique<TKSMessageHost>(tksMessageHostTypeInterface);
    host_->openWithMessengeHandler(&delegate_);
    log_.clear();
  }

  FakeHostProcess process_;
  MemoryChannels channels_;
  RecordingDelegate delegate_;
  LogRecorder log_;
  std::unique_ptr<TKSMessageHost> host_;
};

TEST_F(ReceivingTest, WholeFrameIsDeliveredOnceWithTheDelegateAsSender) {
  host_->onMessage(frame(kHello));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
  EXPECT_THAT(delegate_.senders, ElementsAre(&delegate_));
  EXPECT_THAT(delegate_.failures, IsEmpty());
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "On message."}, LogLine{2, "messageDataSize: 46"},
                          LogLine{2, "Valid message data size, get on processing."},
                          LogLine{2, "No pending data, get size from header 4 bytes."}, LogLine{2, "sizeOfSize: 4"},
                          LogLine{2, "tellingSize: 42"}, LogLine{2, "actualDataSize: 42"},
                          LogLine{2, "pendingDataSize: 0"}, LogLine{2, "receivedData size old: 0"},
                          LogLine{2, "receivedData size new: 42"}, LogLine{2, "Receive message string: "s + kHello}));
}

TEST_F(ReceivingTest, FrameInThreePiecesIsPutTogether) {
  const std::string whole = frame(kHello);
  host_->onMessage(whole.substr(0, 10));
  EXPECT_EQ(host_->pendingDataSize, 36u);
  host_->onMessage(whole.substr(10, 20));
  EXPECT_THAT(delegate_.messages, IsEmpty());
  host_->onMessage(whole.substr(30));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(
          LogLine{2, "On message."}, LogLine{2, "messageDataSize: 10"},
          LogLine{2, "Valid message data size, get on processing."},
          LogLine{2, "No pending data, get size from header 4 bytes."}, LogLine{2, "sizeOfSize: 4"},
          LogLine{2, "tellingSize: 42"}, LogLine{2, "actualDataSize: 6"}, LogLine{2, "pendingDataSize: 36"},
          LogLine{2, "receivedData size old: 0"}, LogLine{2, "receivedData size new: 6"},
          LogLine{2, "No complete message, wait for next message portion."},

          LogLine{2, "On message."}, LogLine{2, "messageDataSize: 20"},
          LogLine{2, "Valid message data size, get on processing."},
          LogLine{2, "Pending data expected, don't get size from header 4 bytes."},
          LogLine{2, "receivedData size old: 6"}, LogLine{2, "receivedData size new: 26"}, LogLine{2, "sizeOfSize: 4"},
          LogLine{2, "pendingDataSize: 16"}, LogLine{2, "No complete message, wait for next message portion."},

          LogLine{2, "On message."}, LogLine{2, "messageDataSize: 16"},
          LogLine{2, "Valid message data size, get on processing."},
          LogLine{2, "Pending data expected, don't get size from header 4 bytes."},
          LogLine{2, "receivedData size old: 26"}, LogLine{2, "receivedData size new: 42"}, LogLine{2, "sizeOfSize: 4"},
          LogLine{2, "pendingDataSize: 0"}, LogLine{2, "Receive message string: "s + kHello}));
}

TEST_F(ReceivingTest, PieceOfTwoFramesGivesTheFirstAndDropsTheRest) {
  host_->onMessage(frame(kHello) + frame(kHello));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
  EXPECT_THAT(log_.texts(4),
              ElementsAre("Dirty data inside message data, 'tellingSize + sizeOfSize < messageDataSize', "
                          "only read telling size of data. Get on processing."));
  EXPECT_TRUE(log_.has(2, "actualDataSize: 42"));
  host_->onMessage(frame(kHello));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello", "hello"));
}

TEST_F(ReceivingTest, SurplusOfAContinuationIsTakenAlongAndSpoilsTheMessage) {
  const std::string whole = frame(kHello);
  host_->onMessage(whole.substr(0, 10));
  host_->onMessage(whole.substr(10) + "more");
  EXPECT_THAT(delegate_.messages, IsEmpty());
  EXPECT_THAT(delegate_.failures, ElementsAre(parseFailure(kHello + "more"s)));
  EXPECT_EQ(host_->pendingDataSize, 0u);
  EXPECT_THAT(host_->receivedData, IsEmpty());
}

TEST_F(ReceivingTest, HeaderAloneIsTheBeginningOfAMessage) {
  host_->onMessage(header(42));
  EXPECT_EQ(host_->pendingDataSize, 42u);
  host_->onMessage(kHello);
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

TEST_F(ReceivingTest, FirstPieceOfOneToThreeBytesIsAFatalError) {
  for (const std::string& piece : {"a"s, "ab"s, "abc"s}) {
    delegate_.failures.clear();
    log_.clear();
    host_->onMessage(piece);
    const std::string size = std::to_string(piece.size());
    const std::string text = "Message data size ( " + size + " ) less than 'sizeOfSize', no pending data.";
    EXPECT_THAT(delegate_.failures, ElementsAre(text));
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "On message."}, LogLine{2, "messageDataSize: " + size},
                                          LogLine{8, "Handle fatal error: " + text}));
  }
}

TEST_F(ReceivingTest, EmptyPieceWithNothingPendingSaysWhatItProbablyMeans) {
  host_->onMessage("");
  EXPECT_THAT(
      delegate_.failures,
      ElementsAre("Message data size ( 0 ) less than 'sizeOfSize', no pending data. (Empty message probably means "
                  "parent or child process already exited, while current message host is still open.)"));
}

TEST_F(ReceivingTest, EmptyPieceInsideAMessageIsAFatalErrorThatLeavesTheMessagePending) {
  host_->onMessage(header(5) + "ab");
  log_.clear();
  host_->onMessage("");
  EXPECT_THAT(delegate_.failures, ElementsAre("Message data empty ( 0 ), pending data expected."));
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "On message."}, LogLine{2, "messageDataSize: 0"},
                          LogLine{8, "Handle fatal error: Message data empty ( 0 ), pending data expected."}));
  EXPECT_EQ(host_->pendingDataSize, 3u);
}

TEST_F(ReceivingTest, ShortPieceInsideAMessageContinuesIt) {
  host_->onMessage(frame(kHello).substr(0, 44));
  host_->onMessage("\"");
  host_->onMessage("}");
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

TEST_F(ReceivingTest, PieceBeyondTheLargestMessageIsAFatalError) {
  const ScopedValue limit(tks_max_msg_size, std::int64_t{20});
  host_->onMessage(std::string(21, 'x'));
  EXPECT_THAT(delegate_.failures, ElementsAre("Unexpected message data size: 21, exceed max message size: 20"));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "On message."}, LogLine{2, "messageDataSize: 21"},
                                        LogLine{8,
                                                "Handle fatal error: Unexpected message data size: 21, exceed max "
                                                "message size: 20"}));
  EXPECT_EQ(host_->pendingDataSize, 0u);
}

TEST_F(ReceivingTest, PieceOfTheLargestSizeIsTaken) {
  const ScopedValue limit(tks_max_msg_size, std::int64_t{46});
  host_->onMessage(frame(kHello));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

TEST_F(ReceivingTest, OversizeHeaderGivesTwoFatalErrorsAndTheNextPieceStartsAFrame) {
  host_->onMessage(header(10485761) + "payload");
  EXPECT_THAT(
      delegate_.failures,
      ElementsAre("Unexpected telling data size: 10485761, exceed max message size: 10485760", parseFailure("")));
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(
          LogLine{2, "On message."}, LogLine{2, "messageDataSize: 11"},
          LogLine{2, "Valid message data size, get on processing."},
          LogLine{2, "No pending data, get size from header 4 bytes."}, LogLine{2, "sizeOfSize: 4"},
          LogLine{2, "tellingSize: 10485761"},
          LogLine{8, "Handle fatal error: Unexpected telling data size: 10485761, exceed max message size: 10485760"},
          LogLine{2, "actualDataSize: 0"}, LogLine{2, "pendingDataSize: 0"}, LogLine{2, "receivedData size old: 0"},
          LogLine{2, "receivedData size new: 0"}, LogLine{2, "Receive message string: "},
          LogLine{8, "Handle fatal error: " + parseFailure("")}));
  host_->onMessage(frame(kHello));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

TEST_F(ReceivingTest, GreatestHeaderIsPrintedAsASignedNumber) {
  host_->onMessage(header(0xFFFFFFFF));
  ASSERT_EQ(delegate_.failures.size(), 2u);
  EXPECT_EQ(delegate_.failures[0], "Unexpected telling data size: -1, exceed max message size: 10485760");
  EXPECT_TRUE(log_.has(2, "tellingSize: 4294967295"));
}

TEST_F(ReceivingTest, HeaderOfTheGreatestSizeIsAccepted) {
  host_->onMessage(header(10485760) + "{");
  EXPECT_THAT(delegate_.failures, IsEmpty());
  EXPECT_EQ(host_->pendingDataSize, 10485759u);
  EXPECT_LT(host_->receivedData.capacity(), 1000u) << "only what arrived takes memory";
}

TEST_F(ReceivingTest, MessageOfTheGreatestSizeIsDelivered) {
  const std::string frameOfMessage = [] {
    std::string payload = R"({"message_type":"a","message":"")";
    payload.insert(payload.size() - 1, std::string(10485760 - payload.size() - 1, 'x'));
    return frame(payload + "}");
  }();
  ASSERT_EQ(frameOfMessage.size(), 10485764u);
  host_->onMessage(std::string_view(frameOfMessage).substr(0, 10485760));
  host_->onMessage(std::string_view(frameOfMessage).substr(10485760));
  EXPECT_THAT(delegate_.types(), ElementsAre("a"));
}

TEST_F(ReceivingTest, LimitIsReadAtEachUse) {
  const ScopedValue limit(tks_max_msg_size, std::int64_t{100});
  host_->onMessage(header(101) + "x");
  EXPECT_EQ(delegate_.failures.front(), "Unexpected telling data size: 101, exceed max message size: 100");
}

TEST_F(ReceivingTest, MessageThatOutgrowsTheLimitIsReportedAndStillParsed) {
  std::optional<ScopedValue<std::int64_t>> limit(std::in_place, tks_max_msg_size, std::int64_t{42});
  const std::string whole = frame(kHello);
  host_->onMessage(whole.substr(0, 20));
  host_->onMessage(whole.substr(20) + "tail");
  EXPECT_THAT(delegate_.failures,
              ElementsAre("Received total message data (46) exceed max size: 42.", parseFailure(kHello + "tail"s)));
}

TEST_F(ReceivingTest, PayloadThatIsNotJSONIsAFatalErrorAndTheNextFrameIsUnderstood) {
  for (const std::string& payload : {"no json"s, "{\"message_type\":\"a\""s, ""s, std::string(kHello) + " tail"}) {
    delegate_.failures.clear();
    host_->onMessage(frame(payload));
    EXPECT_THAT(delegate_.failures, ElementsAre(parseFailure(payload)));
  }
  host_->onMessage(frame(kHello));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

TEST_F(ReceivingTest, MessageRecordsFailureIsPartOfTheText) {
  host_->onMessage(frame(R"({"message_type":"a","message":7})"));
  EXPECT_THAT(delegate_.failures,
              ElementsAre("Error when parse JSON in [TKSMessagHost onMessage]. Message str: "
                          "{\"message_type\":\"a\",\"message\":7}, error: Error Domain=messages.tarvo.example Code=0 "
                          "\"Message data only accept dictionary or string, while receiving: number\""));
}

TEST_F(ReceivingTest, TextThatIsNotUTF8CountsAsAbsent) {
  host_->onMessage(frame("{\"message_type\":\"\xFF\"}"));
  EXPECT_TRUE(log_.has(2, "Receive message string: (null)"));
  EXPECT_THAT(delegate_.failures, ElementsAre(parseFailure("(null)")));
}

TEST_F(ReceivingTest, ReceivedTextIsLoggedUnmaskedAndTheErrorAboutItMasked) {
  host_->onMessage(frame("mail to jane.roe@a.example"));
  EXPECT_TRUE(log_.has(2, "Receive message string: mail to jane.roe@a.example"));
  EXPECT_THAT(log_.texts(8), ElementsAre("Handle fatal error: " + parseFailure("mail to jane.***@a.example")));
  EXPECT_THAT(delegate_.failures, ElementsAre(parseFailure("mail to jane.roe@a.example")));
}

TEST_F(ReceivingTest, ClosedHostIgnoresPieces) {
  host_->close();
  log_.clear();
  host_->onMessage(frame(kHello));
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "On message."}, LogLine{4, "Message host not opened."}));
  EXPECT_THAT(delegate_.messages, IsEmpty());
}

TEST_F(ReceivingTest, RoomOfThePayloadIsKeptForTheNextMessage) {
  host_->onMessage(frame(kHello));
  const std::size_t room = host_->receivedData.capacity();
  EXPECT_GE(room, 42u);
  EXPECT_THAT(host_->receivedData, IsEmpty());
  host_->onMessage(frame(kHello));
  EXPECT_EQ(host_->receivedData.capacity(), room);
}

TEST_F(ReceivingTest, NothingIsFormattedAndNothingFailsWithoutALogCallback) {
  TKSILog::sharedInstance().setLogBlock({});
  host_->onMessage(frame(kHello));
  host_->onMessage(frame("no json"));
  host_->sendMessage(messageOf("hello"));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
  EXPECT_THAT(delegate_.failures, ElementsAre(parseFailure("no json")));
  EXPECT_THAT(payloads(channels_.output->written), ElementsAre(kHello));
}

TEST_F(ReceivingTest, FatalErrorIsLoggedAndHandedOn) {
  host_->handleFatalError("Something about jane.roe@a.example");
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "Handle fatal error: Something about jane.***@a.example"}));
  EXPECT_THAT(delegate_.failures, ElementsAre("Something about jane.roe@a.example"));
  EXPECT_TRUE(host_->isOpened);
}

TEST_F(ReceivingTest, FatalErrorOfAClosedHostIsOnlyLogged) {
  host_->close();
  log_.clear();
  host_->handleFatalError("late");
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{8, "Handle fatal error: late"}));
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(ReceivingTest, SurplusOfAFirstPieceIsWarnedOfBetweenTheSizes) {
  host_->onMessage(frame(kHello) + "!");
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "On message."}, LogLine{2, "messageDataSize: 47"},
                          LogLine{2, "Valid message data size, get on processing."},
                          LogLine{2, "No pending data, get size from header 4 bytes."}, LogLine{2, "sizeOfSize: 4"},
                          LogLine{2, "tellingSize: 42"},
                          LogLine{4,
                                  "Dirty data inside message data, 'tellingSize + sizeOfSize < messageDataSize', only "
                                  "read telling size of data. Get on processing."},
                          LogLine{2, "actualDataSize: 42"}, LogLine{2, "pendingDataSize: 0"},
                          LogLine{2, "receivedData size old: 0"}, LogLine{2, "receivedData size new: 42"},
                          LogLine{2, "Receive message string: "s + kHello}));
}

TEST_F(ReceivingTest, MessageThatOutgrowsTheLimitBeforeItIsCompleteIsReportedAndAwaited) {
  const std::string whole = frame(kHello);
  host_->onMessage(whole.substr(0, 20));
  {
    const ScopedValue limit(tks_max_msg_size, std::int64_t{15});
    log_.clear();
    host_->onMessage(whole.substr(20, 10));
    EXPECT_THAT(delegate_.failures, ElementsAre("Received total message data (26) exceed max size: 15."));
    EXPECT_EQ(log_.lines().back(), (LogLine{2, "No complete message, wait for next message portion."}));
    EXPECT_EQ(host_->pendingDataSize, 16u);
  }
  host_->onMessage(whole.substr(30));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

TEST_F(ReceivingTest, EmptyMessageIsDeliveredToTheParserAndRefused) {
  host_->onMessage(header(0));
  ASSERT_EQ(delegate_.failures.size(), 1u);
  EXPECT_TRUE(log_.has(2, "tellingSize: 0"));
  EXPECT_TRUE(log_.has(2, "Receive message string: "));
}

TEST_F(ReceivingTest, OversizedPieceInsideAMessageIsRefusedAndTheMessageStaysPending) {
  const std::string whole = frame(kHello);
  host_->onMessage(whole.substr(0, 30));
  {
    const ScopedValue limit(tks_max_msg_size, std::int64_t{15});
    log_.clear();
    host_->onMessage(whole.substr(30));
    EXPECT_THAT(delegate_.failures, ElementsAre("Unexpected message data size: 16, exceed max message size: 15"));
    EXPECT_THAT(log_.lines(),
                ElementsAre(LogLine{2, "On message."}, LogLine{2, "messageDataSize: 16"},
                            LogLine{8,
                                    "Handle fatal error: Unexpected message data size: 16, exceed max message size: "
                                    "15"}));
  }
  EXPECT_EQ(host_->pendingDataSize, 16u);
  EXPECT_EQ(host_->receivedData.size(), 26u);
  host_->onMessage(whole.substr(30));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

// Delegates that do more than listen.

TEST_F(ReceivingTest, DelegateThatThrowsIsCaughtWithALine) {
  delegate_.onMessage = [](const TKSMessage&) { throw std::runtime_error("from the message"); };
  delegate_.onFailure = [](const std::string&) { throw 7; };
  host_->onMessage(frame(kHello));
  host_->onMessage("");
  EXPECT_TRUE(log_.has(8, "Callback 'handleMessage:from:' threw an exception: from the message"));
  EXPECT_TRUE(log_.has(8, "Callback 'handleMessageHostFatalError:' threw an exception: unknown"));
  delegate_.onMessage = nullptr;
  host_->onMessage(frame(kHello));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello", "hello"));
}

TEST_F(ReceivingTest, DelegateMayCloseTheHostInsideAMessage) {
  delegate_.onMessage = [&](const TKSMessage&) { host_->close(); };
  host_->onMessage(frame(kHello));
  EXPECT_FALSE(host_->isOpened);
  EXPECT_EQ(host_->messageHandler, nullptr);
}

TEST_F(ReceivingTest, DelegateMayDestroyTheHostInsideAMessage) {
  delegate_.onMessage = [&](const TKSMessage&) { host_.reset(); };
  host_->onMessage(frame(kHello));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

TEST_F(ReceivingTest, DelegateMayDestroyTheHostInsideEveryFatalError) {
  const std::string pieces[] = {"", "ab", header(10485761), frame("no json"), std::string(10485761, 'x')};
  for (const std::string& piece : pieces) {
    RecordingDelegate delegate;
    auto host = std::make_unique<TKSMessageHost>(tksMessageHostTypeInterface);
    host->openWithMessengeHandler(&delegate);
    delegate.onFailure = [&](const std::string&) { host.reset(); };
    host->onMessage(piece);
    EXPECT_EQ(delegate.failures.size(), 1u);
  }
}

TEST_F(ReceivingTest, ClosingInTheFirstOfTwoFatalErrorsLeavesTheSecondALogLine) {
  delegate_.onFailure = [&](const std::string&) { host_->close(); };
  host_->onMessage(header(10485761));
  EXPECT_EQ(delegate_.failures.size(), 1u);
  EXPECT_THAT(
      log_.texts(8),
      ElementsAre("Handle fatal error: Unexpected telling data size: 10485761, exceed max message size: 10485760",
                  "Handle fatal error: " + parseFailure("")));
}

TEST_F(ReceivingTest, ConversationThatAFatalErrorBeginsIsNotTouchedByTheOldPiece) {
  RecordingDelegate next;
  delegate_.onFailure = [&](const std::string&) {
    host_->close();
    host_->openWithMessengeHandler(&next);
  };
  host_->onMessage(header(10485761));
  EXPECT_THAT(next.failures, IsEmpty());
  host_->onMessage(frame(kHello));
  EXPECT_THAT(next.types(), ElementsAre("hello"));
}

TEST_F(ReceivingTest, DelegateMayFeedAnotherPieceInsideAMessage) {
  delegate_.onMessage = [&](const TKSMessage&) {
    delegate_.onMessage = nullptr;
    host_->onMessage(frame(R"({"message_type":"second","message":""})"));
  };
  host_->onMessage(frame(kHello));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello", "second"));
}

}  // namespace

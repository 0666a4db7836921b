#include <tksinterface/TKSMessageHost.h>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <tksinterface/TKSConstants.h>

#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/MemoryChannels.h"
#include "tests/support/ScopedValue.h"
#include "tests/support/ScopedWorkingFolder.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace std::string_literals;
using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;
using tks::test::contentOf;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::FakeHome;
using tks::test::FakeHostProcess;
using tks::test::frame;
using tks::test::header;
using tks::test::LogLine;
using tks::test::LogRecorder;
using tks::test::MemoryChannels;
using tks::test::payloads;
using tks::test::RecordingDelegate;
using tks::test::ScopedValue;
using tks::test::TemporaryFolder;
using tks::test::Wire;
using tks::test::writeFile;

constexpr const char* kHello = R"({"message":"hello","message_type":"hello"})";
constexpr const char* kNotJSON =
    "Error Domain=messages.tarvo.example Code=0 \"Passing nil or not an valid JSON string when try to parse JSON for "
    "TKSMessge.\"";

std::string parseFailure(const std::string& text) {
  return "Error when parse JSON in [TKSMessagHost onMessage]. Message str: " + text + ", error: " + kNotJSON;
}

TKSMessage message(std::string_view type) {
  TKSMessage made;
  made.messageType = type;
  made.message = type;
  return made;
}

/// Everything but the trace lines, which name numbers of the process and of source lines.
std::vector<LogLine> linesWithoutTrace(const LogRecorder& log) {
  std::vector<LogLine> lines;
  for (const LogLine& line : log.lines()) {
    if (line.level != 1) lines.push_back(line);
  }
  return lines;
}

// Choosing the channel.

class ChoosingTheChannelTest : public testing::Test {
 protected:
  FakeHostProcess process_;
  LogRecorder log_;
};

TEST_F(ChoosingTheChannelTest, ProcessOutsideOfABundleUsesThePipe) {
  const TKSMessageHost host(tksMessageHostTypeInterface);
  EXPECT_FALSE(host.ipcByFile);
  EXPECT_FALSE(host.isOpened);
  EXPECT_EQ(host.type, 0u);
  EXPECT_EQ(host.pendingDataSize, 0u);
  EXPECT_THAT(host.receivedData, IsEmpty());
  EXPECT_THAT(host.tempIPCFileFullPathFromTKS2Interface, IsEmpty());
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(LogLine{2, "Got bundleIdentifier:(null)"},
                  LogLine{2, "TKSInterface/Extension communicates with TKS by PIPE with standrad input and output."}));
}

TEST_F(ChoosingTheChannelTest, TeamMessagingHostsUseFilesAndReadNoArguments) {
  process_.arguments = {{"Communicate", "Pipe"}, {"TempIPCFilePath", "/tmp/elsewhere"}};
  for (const char* identifier : {"Tarvo-Systems.Ember", "Tarvo-Systems.Ember.Debug"}) {
    process_.bundleIdentifier = identifier;
    log_.clear();
    const TKSMessageHost host(tksMessageHostTypeInterface);
    EXPECT_TRUE(host.ipcByFile);
    EXPECT_THAT(host.tempIPCFileFullPathFromTKS2Interface, IsEmpty());
    EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Got bundleIdentifier:"s + identifier},
                                          LogLine{2, "TKSInterface communicates with TKS by FILE."}));
  }
}

TEST_F(ChoosingTheChannelTest, IdentifiersAreComparedWhole) {
  process_.bundleIdentifier = "Tarvo-Systems.Ember.Beta";
  EXPECT_FALSE(TKSMessageHost(tksMessageHostTypeInterface).ipcByFile);
  process_.bundleIdentifier = "tarvo-systems.ember";
  EXPECT_FALSE(TKSMessageHost(tksMessageHostTypeInterface).ipcByFile);
}

TEST_F(ChoosingTheChannelTest, ArgumentsChooseFilesAndNameTheFolder) {
  process_.bundleIdentifier = "com.tarvo.kovra.Tarvo-Kovra-Start";
  process_.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", "/Users/jane/tmp/ipc/"}};
  const TKSMessageHost host(tksMessageHostTypeTKS);
  EXPECT_TRUE(host.ipcByFile);
  EXPECT_EQ(host.type, 1u);
  EXPECT_EQ(host.tempIPCFileFullPathFromTKS2Interface, "/Users/jane/tmp/ipc/ipcFile_TKS2Interface");
  EXPECT_EQ(host.tempIPCFileFullPathFromInterface2TKS, "/Users/jane/tmp/ipc/ipcFile_Interface2TKS");
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "Got bundleIdentifier:com.tarvo.kovra.Tarvo-Kovra-Start"},
                          LogLine{2, "Got ipc way from launch args: '-Communicate File'"},
                          LogLine{2, "Got ipcFileFolderPath from launch args: '-TempIPCFilePath /Users/****/tmp/ipc/'"},
                          LogLine{2, "TKSInterface communicates with TKS by FILE."}));
}

TEST_F(ChoosingTheChannelTest, FilesWithoutAFolderAreKeptWithALine) {
  process_.arguments = {{"Communicate", "File"}};
  const TKSMessageHost host(tksMessageHostTypeTKS);
  EXPECT_TRUE(host.ipcByFile);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Got bundleIdentifier:(null)"},
                                        LogLine{2, "Got ipc way from launch args: '-Communicate File'"},
                                        LogLine{8, "ipcFileFolderPath is nil or empty while ipc by file!"},
                                        LogLine{2, "TKSInterface communicates with TKS by FILE."}));
}

TEST_F(ChoosingTheChannelTest, AnyOtherWayMeansThePipeAndTheFolderIsNotedAllTheSame) {
  process_.arguments = {{"Communicate", "file"}, {"TempIPCFilePath", "/tmp/ipc"}};
  const TKSMessageHost host(tksMessageHostTypeTKS);
  EXPECT_FALSE(host.ipcByFile);
  EXPECT_EQ(host.tempIPCFileFullPathFromTKS2Interface, "/tmp/ipc/ipcFile_TKS2Interface");
  EXPECT_TRUE(log_.has(2, "Got ipc way from launch args: '-Communicate file'"));
  EXPECT_TRUE(log_.has(2, "Got ipcFileFolderPath from launch args: '-TempIPCFilePath /tmp/ipc'"));
}

TEST_F(ChoosingTheChannelTest, EmptyArgumentsAreLikeMissingOnes) {
  process_.arguments = {{"Communicate", ""}, {"TempIPCFilePath", ""}};
  const TKSMessageHost host(tksMessageHostTypeTKS);
  EXPECT_FALSE(host.ipcByFile);
  EXPECT_THAT(log_.lines().size(), 2u);
}

TEST_F(ChoosingTheChannelTest, FolderGivesBothPaths) {
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.setIPCFileFolderPath("/a/b");
  EXPECT_EQ(host.tempIPCFileFullPathFromTKS2Interface, "/a/b/ipcFile_TKS2Interface");
  EXPECT_EQ(host.tempIPCFileFullPathFromInterface2TKS, "/a/b/ipcFile_Interface2TKS");
  host.setIPCFileFolderPath("/");
  EXPECT_EQ(host.tempIPCFileFullPathFromTKS2Interface, "/ipcFile_TKS2Interface");
  host.setIPCFileFolderPath("");
  EXPECT_EQ(host.tempIPCFileFullPathFromTKS2Interface, "");
  EXPECT_EQ(host.tempIPCFileFullPathFromInterface2TKS, "");
}

TEST_F(ChoosingTheChannelTest, SharedHostIsOneOfTheLaunchersType) {
  EXPECT_EQ(&TKSMessageHost::sharedMessengeHost(), &TKSMessageHost::sharedMessengeHost());
  EXPECT_EQ(TKSMessageHost::sharedMessengeHost().type, 1u);
}

// Receiving: the algorithm on the pieces it is given.

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
  host_->sendMessage(message("hello"));
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

// Opening and closing on the pipe.

class PipeHostTest : public testing::Test {
 protected:
  FakeHostProcess process_;
  MemoryChannels channels_;
  RecordingDelegate delegate_;
  LogRecorder log_;
  TKSMessageHost host_{tksMessageHostTypeInterface};
};

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
  host_.sendMessage(message("hello"));
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
  host_.sendMessage(message("hello"));
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

// Sending.

TEST_F(PipeHostTest, SendingWritesOneFrameAndItsLines) {
  host_.openWithMessengeHandler(&delegate_);
  log_.clear();
  host_.sendMessage(message("hello"));
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

TEST_F(PipeHostTest, SentTextIsLoggedMaskedAndSentAsItIs) {
  host_.openWithMessengeHandler(&delegate_);
  TKSMessage mail = message("hello");
  mail.message = "jane.roe@a.example";
  host_.sendMessage(mail);
  EXPECT_TRUE(log_.has(2, R"(Send message string: {"message":"jane.***@a.example","message_type":"hello"})"));
  EXPECT_THAT(payloads(channels_.output->written),
              ElementsAre(R"({"message":"jane.roe@a.example","message_type":"hello"})"));
}

TEST_F(PipeHostTest, SendingBeforeOpenAndAfterCloseIsAbandonedWithAWarning) {
  const std::vector<LogLine> expected = {{2, "Send message string: "s + kHello},
                                         {4, "Message host already closed, abandon sending message."}};
  log_.clear();
  host_.sendMessage(message("hello"));
  EXPECT_EQ(linesWithoutTrace(log_), expected);
  EXPECT_EQ(log_.texts(1).size(), 1u);
  host_.openWithMessengeHandler(&delegate_);
  host_.close();
  log_.clear();
  host_.sendMessage(message("hello"));
  EXPECT_EQ(linesWithoutTrace(log_), expected);
  EXPECT_THAT(channels_.output->written, IsEmpty());
}

TEST_F(PipeHostTest, MessageThatHasNoTextIsNotSent) {
  host_.openWithMessengeHandler(&delegate_);
  log_.clear();
  TKSMessage bad = message("hello");
  bad.message = TKSDate{1};
  host_.sendMessage(bad);
  EXPECT_EQ(linesWithoutTrace(log_),
            (std::vector<LogLine>{{2, "Send message string: (null)"},
                                  {8,
                                   "Parse TKSMessage to string failed: Error Domain=messages.tarvo.example Code=0 "
                                   "\"Invalid type in JSON write (date)\""}}));
  EXPECT_THAT(channels_.output->written, IsEmpty());
  host_.sendMessage(message("hello"));
  EXPECT_THAT(payloads(channels_.output->written), ElementsAre(kHello));
}

TEST_F(PipeHostTest, FailingWriteIsLoggedAndTheHostStaysOpen) {
  host_.openWithMessengeHandler(&delegate_);
  channels_.output->writeFailure = TKSError{"POSIX", 32, "write standard output: broken pipe"};
  host_.sendMessage(message("hello"));
  EXPECT_THAT(log_.texts(8),
              ElementsAre("Write message failed: Error Domain=POSIX Code=32 \"write standard output: broken pipe\""));
  EXPECT_TRUE(host_.isOpened);
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(PipeHostTest, LogCallbackMaySendInsideTheLinesOfASending) {
  host_.openWithMessengeHandler(&delegate_);
  bool once = true;
  TKSILog::sharedInstance().setLogBlock([&](std::int32_t, const std::string& line) {
    if (!line.starts_with("Send message string") || !std::exchange(once, false)) return;
    host_.sendMessage(message("disconnect"));
  });
  host_.sendMessage(message("hello"));
  EXPECT_THAT(payloads(channels_.output->written),
              ElementsAre(R"({"message":"disconnect","message_type":"disconnect"})", kHello));
}

// Files.

class FileHostTest : public testing::Test {
 protected:
  std::unique_ptr<TKSMessageHost> makeHost(std::int32_t type) {
    process_.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", ipc_}};
    auto host = std::make_unique<TKSMessageHost>(type);
    log_.clear();
    return host;
  }
  std::string fromLauncher() const { return ipc_ + "/ipcFile_TKS2Interface"; }
  std::string fromInterface() const { return ipc_ + "/ipcFile_Interface2TKS"; }
  static mode_t modeOf(const std::string& path) {
    struct stat facts {};
    return ::lstat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : 0;
  }
  static void append(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::app) << bytes;
  }

  FakeHome home_;
  FakeHostProcess process_;
  TemporaryFolder folder_;
  std::string ipc_ = folder_ / "deep/ipc";
  RecordingDelegate delegate_;
  LogRecorder log_;
};

TEST_F(FileHostTest, InterfaceMakesFolderAndFilesForItselfAloneWhateverTheUmask) {
  const mode_t before = ::umask(0);
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  ::umask(before);
  EXPECT_EQ(modeOf(ipc_), 0700u);
  EXPECT_EQ(modeOf(fromLauncher()), 0600u);
  EXPECT_EQ(modeOf(fromInterface()), 0600u);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Open message host with handler."},
                                        LogLine{2, "Create directory:" + ipc_ + " successfully!"},
                                        LogLine{2, "Create ipcFile_TKS2Interface successfully!"},
                                        LogLine{2, "Create ipcFile_Interface2TKS successfully!"},
                                        LogLine{2, "Open message host with handler done."}));
}

TEST_F(FileHostTest, ExistingFolderAndFilesAreLoggedAndLeftAsTheyAre) {
  std::filesystem::create_directories(ipc_);
  writeFile(fromLauncher(), frame(kHello));
  writeFile(fromInterface(), "kept");
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Open message host with handler."},
                                        LogLine{8, "Error! Ipc file directory:" + ipc_ + " already exists!"},
                                        LogLine{8, "Error! IpcFile_TKS2Interface already exists!"},
                                        LogLine{8, "Error! ipcFile_Interface2TKS already exists!"},
                                        LogLine{2, "Open message host with handler done."}));
  host->sendMessage(message("hello"));
  EXPECT_EQ(contentOf(fromInterface()), "kept" + frame(kHello));
  ASSERT_TRUE(drainUntil([&] { return !delegate_.messages.empty(); }));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello")) << "frames written before are read from the beginning";
}

TEST_F(FileHostTest, FolderThatCannotBeMadeIsLoggedAndNothingElseGoesWrong) {
  writeFile(folder_ / "deep", "a file in the way");
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(host->isOpened);
  const std::vector<std::string> errors = log_.texts(8);
  ASSERT_GE(errors.size(), 3u);
  EXPECT_THAT(errors[0], MatchesRegex("Failed to create directory:.*/deep/ipc, error: Error Domain=.*\\."));
  EXPECT_EQ(errors[1], "Create ipcFile_TKS2Interface failed!");
  EXPECT_EQ(errors[2], "Create ipcFile_Interface2TKS failed!");
}

TEST_F(FileHostTest, LauncherLooksAtTheFilesAndMakesNone) {
  std::filesystem::create_directories(ipc_);
  writeFile(fromLauncher(), "");
  writeFile(fromInterface(), "");
  auto host = makeHost(tksMessageHostTypeTKS);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(LogLine{2, "Open message host with handler."}, LogLine{2, "Ipc file directory:" + ipc_ + " exists."},
                  LogLine{2, "ipcFile_TKS2Interface exists."}, LogLine{2, "ipcFile_Interface2TKS exists."},
                  LogLine{2, "Open message host with handler done."}));
}

TEST_F(FileHostTest, LauncherReportsWhatIsMissing) {
  const auto host = makeHost(tksMessageHostTypeTKS);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(host->isOpened);
  const std::vector<std::string> errors = log_.texts(8);
  ASSERT_GE(errors.size(), 3u);
  EXPECT_EQ(errors[0], "Error! Ipc file directory:" + ipc_ + " doesn't exist!");
  EXPECT_EQ(errors[1], "Error! ipcFile_TKS2Interface:" + fromLauncher() + " doesn't exist!");
  EXPECT_EQ(errors[2], "Error! ipcFile_Interface2TKS:" + fromInterface() + " doesn't exist!");
  EXPECT_FALSE(std::filesystem::exists(ipc_));
}

TEST_F(FileHostTest, PathsInLinesAreMasked) {
  ipc_ = folder_ / "Users/jane/ipc";
  const std::string shown = folder_ / "Users/****/ipc";
  const auto launcher = makeHost(tksMessageHostTypeTKS);
  launcher->openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(log_.has(8, "Error! Ipc file directory:" + shown + " doesn't exist!"));
  EXPECT_TRUE(log_.has(8, "Error! ipcFile_TKS2Interface:" + shown + "/ipcFile_TKS2Interface doesn't exist!"));
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(log_.has(2, "Create directory:" + shown + " successfully!"));
  for (const LogLine& line : log_.lines()) EXPECT_THAT(line.text, testing::Not(testing::HasSubstr("/jane/")));
}

TEST_F(FileHostTest, BothEndsTalkThroughTheFiles) {
  const auto interface = makeHost(tksMessageHostTypeInterface);
  const auto launcher = makeHost(tksMessageHostTypeTKS);
  RecordingDelegate launchersDelegate;
  interface->openWithMessengeHandler(&delegate_);
  launcher->openWithMessengeHandler(&launchersDelegate);
  interface->sendMessage(message("hello"));
  ASSERT_TRUE(drainUntil([&] { return !launchersDelegate.messages.empty(); }));
  launcher->sendMessage(message("hello_ack"));
  launcher->sendMessage(message("disconnect_ack"));
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 2; }));
  EXPECT_THAT(launchersDelegate.types(), ElementsAre("hello"));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello_ack", "disconnect_ack"));
  EXPECT_EQ(contentOf(fromInterface()), frame(kHello)) << "appended, never cut";
}

TEST_F(FileHostTest, BytesAppendedWhileNobodyReadsAreReadLater) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  append(fromLauncher(), frame(kHello).substr(0, 20));
  ASSERT_TRUE(drainUntil([&] { return host->pendingDataSize > 0; }));
  append(fromLauncher(), frame(kHello).substr(20) + frame(kHello));
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 2; }));
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(FileHostTest, EmptyPieceIsIgnored) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  host->onMessage("");
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "On message."},
                          LogLine{2, "messageData is nil or empty and ipc by File, ignore this message!"}));
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(FileHostTest, IdleFileDeliversNoPiece) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  drainFor(100ms);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FileHostTest, InterfacesCloseRemovesTheFolderAndForgetsThePaths) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  host->close();
  EXPECT_FALSE(std::filesystem::exists(ipc_));
  EXPECT_TRUE(std::filesystem::exists(folder_ / "deep"));
  EXPECT_THAT(host->tempIPCFileFullPathFromTKS2Interface, IsEmpty());
  EXPECT_THAT(host->tempIPCFileFullPathFromInterface2TKS, IsEmpty());
  EXPECT_THAT(log_.lines(),
              ElementsAre(LogLine{2, "Close message host."}, LogLine{2, "destroyFileHandle"},
                          LogLine{2, "Succeed to remove ipc file folder."}, LogLine{2, "Close message host done."}));
}

TEST_F(FileHostTest, LaunchersCloseLeavesTheFolderAndForgetsThePaths) {
  std::filesystem::create_directories(ipc_);
  writeFile(fromLauncher(), "");
  writeFile(fromInterface(), "");
  const auto host = makeHost(tksMessageHostTypeTKS);
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  host->close();
  EXPECT_TRUE(std::filesystem::exists(fromLauncher()));
  EXPECT_THAT(host->tempIPCFileFullPathFromTKS2Interface, IsEmpty());
  EXPECT_THAT(log_.lines(), ElementsAre(LogLine{2, "Close message host."}, LogLine{2, "destroyFileHandle"},
                                        LogLine{2, "Close message host done."}));
}

TEST_F(FileHostTest, FolderThatIsGoneAlreadyIsReportedAtClose) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  std::filesystem::remove_all(ipc_);
  host->close();
  ASSERT_EQ(log_.texts(8).size(), 1u);
  EXPECT_THAT(log_.texts(8)[0], MatchesRegex("Removing ipcFile folder has error:Error Domain=.*"));
}

TEST_F(FileHostTest, CloseRemovesOnlyWhatAConversationMakes) {
  writeFile(ipc_ + "/letter", "dear");
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  host->close();
  EXPECT_EQ(contentOf(ipc_ + "/letter"), "dear");
  EXPECT_FALSE(std::filesystem::exists(fromLauncher()));
  EXPECT_FALSE(std::filesystem::exists(fromInterface()));
  EXPECT_THAT(log_.texts(8), ElementsAre(MatchesRegex("Removing ipcFile folder has error:.*Directory not empty.*")));
}

TEST_F(FileHostTest, CloseRemovesAFolderOfItsOwnWithItsContents) {
  const std::string elsewhere = folder_ / "elsewhere";
  writeFile(elsewhere + "/letter", "dear");
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  writeFile(ipc_ + "/folder/of the launcher", "x");
  std::filesystem::create_directory_symlink(elsewhere, ipc_ + "/link");
  host->openWithMessengeHandler(&delegate_);  // once more, by the same conversation
  log_.clear();
  host->close();
  EXPECT_FALSE(std::filesystem::exists(ipc_));
  EXPECT_EQ(contentOf(elsewhere + "/letter"), "dear");
  EXPECT_THAT(log_.texts(8), IsEmpty());
}

TEST_F(FileHostTest, CloseRemovesNothingOfAFolderThatWasPutInThePlaceOfItsOwn) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  std::filesystem::remove_all(ipc_);
  writeFile(folder_ / "elsewhere/letter", "dear");
  std::filesystem::create_directory_symlink(folder_ / "elsewhere", ipc_);
  host->close();
  EXPECT_EQ(contentOf(folder_ / "elsewhere/letter"), "dear");
}

TEST_F(FileHostTest, TheHomeIsKeptHoweverItIsSpelled) {
  const tks::test::ScopedWorkingFolder here(home_.realHome());
  for (const std::string& folder : {home_.realHome(), home_.realHome() + "/.", home_.realHome() + "//", "."s, "./"s,
                                    home_ / "../home", home_ / "Library/.."}) {
    std::filesystem::create_directories(home_ / "Library");
    TKSMessageHost host(tksMessageHostTypeInterface);
    host.ipcByFile = true;
    host.setIPCFileFolderPath(folder);
    host.openWithMessengeHandler(&delegate_);
    log_.clear();
    host.close();
    EXPECT_TRUE(std::filesystem::exists(home_ / "Library")) << folder;
    EXPECT_EQ(log_.texts(8).size(), 1u) << folder;
    std::filesystem::remove(home_ / "Library");
    host.setIPCFileFolderPath(folder);
    host.openWithMessengeHandler(&delegate_);
    host.close();
    EXPECT_TRUE(std::filesystem::exists(home_.realHome())) << "also an empty one: " << folder;
  }
}

TEST_F(FileHostTest, OpeningWithoutAFolderLogsMakesNoHandleAndTouchesNothing) {
  const std::string before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  process_.bundleIdentifier = "Tarvo-Systems.Ember";
  for (const std::int32_t type : {tksMessageHostTypeInterface, tksMessageHostTypeTKS}) {
    TKSMessageHost host(type);
    log_.clear();
    host.openWithMessengeHandler(&delegate_);
    EXPECT_TRUE(host.isOpened);
    EXPECT_EQ(log_.texts(8).size(), 3u);
    log_.clear();
    host.sendMessage(message("hello"));
    EXPECT_EQ(log_.texts(8).size(), 1u);
    drainFor(2ms);
    host.close();
  }
  EXPECT_THAT(delegate_.failures, IsEmpty());
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
  std::filesystem::current_path(before);
}

TEST_F(FileHostTest, OpeningAgainWithoutAFolderLetsGoOfTheEarlierFiles) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  host->setIPCFileFolderPath("");
  host->openWithMessengeHandler(&delegate_);
  log_.clear();
  host->sendMessage(message("hello"));
  EXPECT_EQ(log_.texts(8).size(), 1u);
  EXPECT_THAT(contentOf(fromInterface()), IsEmpty());
}

TEST_F(FileHostTest, TypeThatIsNeitherMakesNoHandle) {
  process_.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", ipc_}};
  TKSMessageHost host(7);
  host.openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(host.isOpened);
  EXPECT_FALSE(std::filesystem::exists(ipc_));
  host.sendMessage(message("hello"));
  EXPECT_EQ(log_.texts(8).size(), 1u);
  host.close();
  EXPECT_FALSE(std::filesystem::exists(ipc_));
}

TEST_F(FileHostTest, LinkedFilesAreRefused) {
  std::filesystem::create_directories(ipc_);
  writeFile(folder_ / "victim", "precious");
  std::filesystem::create_symlink(folder_ / "victim", fromInterface());
  std::filesystem::create_symlink(folder_ / "victim", fromLauncher());
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_EQ(log_.texts(8).size(), 5u);
  EXPECT_THAT(log_.texts(8)[3], StartsWith("Open message channel failed: "));
  EXPECT_THAT(log_.texts(8)[4], StartsWith("Open message channel failed: "));
  host->sendMessage(message("hello"));
  drainFor(2ms);
  EXPECT_EQ(contentOf(folder_ / "victim"), "precious");
  EXPECT_THAT(delegate_.messages, IsEmpty());
  host->close();
  EXPECT_EQ(contentOf(folder_ / "victim"), "precious") << "links are removed, not what they point to";
}

TEST_F(FileHostTest, DanglingLinkIsNotFollowedWhenFilesAreMade) {
  std::filesystem::create_directories(ipc_);
  std::filesystem::create_symlink(folder_ / "elsewhere", fromInterface());
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(log_.has(8, "Create ipcFile_Interface2TKS failed!"));
  host->sendMessage(message("hello"));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "elsewhere"));
}

TEST_F(FileHostTest, FileThatIsCutReplacedOrRemovedIsAFatalError) {
  const std::function<void()> faults[] = {
      [this] { std::filesystem::resize_file(fromLauncher(), 3); },
      [this] { std::filesystem::remove(fromLauncher()); },
      [this] {
        writeFile(folder_ / "other", frame(kHello));
        std::filesystem::rename(folder_ / "other", fromLauncher());
      },
  };
  for (const auto& fault : faults) {
    delegate_.failures.clear();
    delegate_.messages.clear();
    const auto host = makeHost(tksMessageHostTypeInterface);
    host->openWithMessengeHandler(&delegate_);
    append(fromLauncher(), frame(kHello));
    ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 1; }));
    fault();
    ASSERT_TRUE(drainUntil([&] { return !delegate_.failures.empty(); }));
    EXPECT_THAT(delegate_.failures.front(), StartsWith("Read message failed: Error Domain="));
    EXPECT_EQ(delegate_.messages.size(), 1u);
    host->close();
  }
}

TEST_F(FileHostTest, NextConversationStartsWithNewFiles) {
  const auto host = makeHost(tksMessageHostTypeInterface);
  host->openWithMessengeHandler(&delegate_);
  delegate_.onMessage = [&](const TKSMessage&) { host->close(); };
  append(fromLauncher(), frame(kHello) + frame(kHello));
  ASSERT_TRUE(drainUntil([&] { return !host->isOpened; }));
  delegate_.onMessage = nullptr;
  host->setIPCFileFolderPath(ipc_);
  host->openWithMessengeHandler(&delegate_);
  append(fromLauncher(), frame(R"({"message_type":"fresh","message":""})"));
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == 2; }));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello", "fresh"));
}

}  // namespace

#include <tksinterface/TKSMessageHost.h>

#include <gmock/gmock.h>

#include <barrier>
#include <filesystem>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMainLoop.h>

#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/MemoryChannels.h"
#include "tests/support/ProcessState.h"
#include "tests/support/ScopedValue.h"
#include "tests/support/TemporaryFolder.h"

// The steps of the message host that follow one another in a fixed order, and those that go on after a failure.

namespace {

using namespace std::string_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::drainUntil;
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

constexpr const char* kHello = R"({"message":"hello","message_type":"hello"})";

class MessageHostSteps : public testing::Test {
 protected:
  MessageHostSteps() {
    host_.openWithMessengeHandler(&delegate_);
    log_.clear();
  }
  static TKSMessage hello() {
    TKSMessage message;
    message.messageType = "hello";
    message.message = "hello";
    return message;
  }

  FakeHostProcess process_;
  MemoryChannels channels_;
  RecordingDelegate delegate_;
  LogRecorder log_;
  TKSMessageHost host_{tksMessageHostTypeInterface};
};

/// The record is turned into text before anybody asks whether the host is open.
TEST_F(MessageHostSteps, RecordThatHasNoTextIsSaidSoByAClosedHostToo) {
  host_.close();
  log_.clear();
  TKSMessage bad = hello();
  bad.message = TKSDate{1};
  host_.sendMessage(bad);
  EXPECT_TRUE(log_.has(2, "Send message string: (null)"));
  EXPECT_THAT(log_.texts(8),
              ElementsAre("Parse TKSMessage to string failed: Error Domain=messages.tarvo.example Code=0 "
                          "\"Invalid type in JSON write (date)\""));
  EXPECT_THAT(log_.texts(4), IsEmpty());
  EXPECT_THAT(channels_.output->written, IsEmpty());
}

TEST_F(MessageHostSteps, SurplusOfAFirstPieceIsWarnedOfBetweenTheSizes) {
  host_.onMessage(frame(kHello) + "!");
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

TEST_F(MessageHostSteps, MessageThatOutgrowsTheLimitBeforeItIsCompleteIsReportedAndAwaited) {
  const std::string whole = frame(kHello);
  host_.onMessage(whole.substr(0, 20));
  {
    const ScopedValue limit(tks_max_msg_size, std::int64_t{15});
    log_.clear();
    host_.onMessage(whole.substr(20, 10));
    EXPECT_THAT(delegate_.failures, ElementsAre("Received total message data (26) exceed max size: 15."));
    EXPECT_EQ(log_.lines().back(), (LogLine{2, "No complete message, wait for next message portion."}));
    EXPECT_EQ(host_.pendingDataSize, 16u);
  }
  host_.onMessage(whole.substr(30));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

TEST_F(MessageHostSteps, EmptyMessageIsDeliveredToTheParserAndRefused) {
  host_.onMessage(header(0));
  ASSERT_EQ(delegate_.failures.size(), 1u);
  EXPECT_TRUE(log_.has(2, "tellingSize: 0"));
  EXPECT_TRUE(log_.has(2, "Receive message string: "));
}

TEST_F(MessageHostSteps, FrameThatThereIsNoMemoryForIsNotSentAndTheNextOneIs) {
  channels_.output->onWrite = [](std::string_view) { throw std::bad_alloc(); };
  host_.sendMessage(hello());
  EXPECT_THAT(log_.texts(8), ElementsAre("Transfer string to data blob failed."));
  EXPECT_TRUE(host_.isOpened);
  EXPECT_THAT(delegate_.failures, IsEmpty());
  channels_.output->onWrite = nullptr;
  channels_.output->written.clear();
  host_.sendMessage(hello());
  EXPECT_THAT(payloads(channels_.output->written), ElementsAre(kHello));
}

TEST_F(MessageHostSteps, FrameGoesOutInOneWriteWithItsLengthInFront) {
  TKSMessage message;
  message.messageType = "\xC3\xA4";
  host_.sendMessage(message);
  // Bytes are counted, not characters.
  EXPECT_EQ(channels_.output->written, "\x15\0\0\0"s + "{\"message_type\":\"\xC3\xA4\"}");
  EXPECT_EQ(channels_.output->writes, 1u);
}

TEST_F(MessageHostSteps, RecordThatIsNoJsonIsReportedBeforeTheHostIsFoundClosed) {
  host_.close();
  log_.clear();
  TKSMessage message = hello();
  message.message = TKSDate{1};
  host_.sendMessage(message);
  EXPECT_THAT(log_.texts(2), ElementsAre("Send message string: (null)"));
  EXPECT_THAT(log_.texts(8),
              ElementsAre("Parse TKSMessage to string failed: Error Domain=messages.tarvo.example Code=0 "
                          "\"Invalid type in JSON write (date)\""));
  EXPECT_THAT(log_.texts(4), IsEmpty());
}

TEST_F(MessageHostSteps, OversizedPieceInsideAMessageIsRefusedAndTheMessageStaysPending) {
  const std::string whole = frame(kHello);
  host_.onMessage(whole.substr(0, 30));
  {
    const ScopedValue limit(tks_max_msg_size, std::int64_t{15});
    log_.clear();
    host_.onMessage(whole.substr(30));
    EXPECT_THAT(delegate_.failures, ElementsAre("Unexpected message data size: 16, exceed max message size: 15"));
    EXPECT_THAT(log_.lines(),
                ElementsAre(LogLine{2, "On message."}, LogLine{2, "messageDataSize: 16"},
                            LogLine{8,
                                    "Handle fatal error: Unexpected message data size: 16, exceed max message size: "
                                    "15"}));
  }
  EXPECT_EQ(host_.pendingDataSize, 16u);
  EXPECT_EQ(host_.receivedData.size(), 26u);
  host_.onMessage(whole.substr(30));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
}

TEST_F(MessageHostSteps, EverythingIsDeliveredOnTheThreadThatDrainsTheLoop) {
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

TEST(SharedHost, IsMadeOnceHoweverManyThreadsAskForItAtOnce) {
  TKS_IN_FRESH_PROCESS();
  const LogRecorder log;
  constexpr std::size_t kThreads = 16;
  std::barrier begin(kThreads);
  std::vector<TKSMessageHost*> hosts(kThreads);
  std::vector<std::thread> threads;
  for (TKSMessageHost*& host : hosts) {
    threads.emplace_back([&] {
      begin.arrive_and_wait();
      host = &TKSMessageHost::sharedMessengeHost();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(hosts, testing::Each(hosts.front()));
  EXPECT_EQ(hosts.front()->type, 1u);
  EXPECT_EQ(log.texts(2).size(), 2u) << "the lines of one construction";
}

TEST_F(MessageHostSteps, DelegateIsNotOwned) {
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

class FileHostSteps : public testing::Test {
 protected:
  FileHostSteps() { process_.bundleIdentifier = "Tarvo-Systems.Ember"; }

  FakeHostProcess process_;
  TemporaryFolder folder_;
  RecordingDelegate delegate_;
  LogRecorder log_;
};

TEST_F(FileHostSteps, FolderHasToBeNamedAgainBeforeTheNextOpening) {
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.setIPCFileFolderPath(folder_ / "first");
  host.openWithMessengeHandler(&delegate_);
  host.close();
  log_.clear();
  host.openWithMessengeHandler(&delegate_);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "first"));
  EXPECT_EQ(log_.texts(8).size(), 3u);
  host.close();

  log_.clear();
  host.setIPCFileFolderPath(folder_ / "second");
  host.openWithMessengeHandler(&delegate_);
  EXPECT_TRUE(std::filesystem::exists(folder_ / "second/ipcFile_TKS2Interface"));
  EXPECT_THAT(log_.texts(8), IsEmpty());
  host.close();
}

TEST_F(FileHostSteps, ClosingAndDestroyingLetGoOfEveryHandle) {
  TKSMainLoop::descriptor();
  const std::set<int> before = tks::test::openDescriptors();
  TKSMessageHost host(tksMessageHostTypeInterface);
  for (const char* name : {"first", "second"}) {
    host.setIPCFileFolderPath(folder_ / name);
    host.openWithMessengeHandler(&delegate_);
    EXPECT_GT(tks::test::openDescriptors().size(), before.size());
    host.close();
    EXPECT_EQ(tks::test::openDescriptors(), before);
  }
  {
    TKSMessageHost unclosed(tksMessageHostTypeInterface);
    unclosed.setIPCFileFolderPath(folder_ / "third");
    unclosed.openWithMessengeHandler(&delegate_);
  }
  EXPECT_EQ(tks::test::openDescriptors(), before);
}

TEST_F(FileHostSteps, OneFileThatIsThereAlreadyDoesNotKeepTheOtherFromBeingMade) {
  for (const auto& [there, line, other] : std::initializer_list<std::tuple<std::string, std::string, std::string>>{
           {"ipcFile_TKS2Interface", "Error! IpcFile_TKS2Interface already exists!",
            "Create ipcFile_Interface2TKS successfully!"},
           {"ipcFile_Interface2TKS", "Error! ipcFile_Interface2TKS already exists!",
            "Create ipcFile_TKS2Interface successfully!"},
       }) {
    const std::string ipc = folder_ / there;
    std::filesystem::create_directories(ipc);
    tks::test::writeFile(ipc + "/" + there, "");
    log_.clear();
    TKSMessageHost host(tksMessageHostTypeInterface);
    host.setIPCFileFolderPath(ipc);
    host.openWithMessengeHandler(&delegate_);
    EXPECT_THAT(log_.texts(8), ElementsAre("Error! Ipc file directory:" + ipc + " already exists!", line));
    EXPECT_THAT(log_.texts(2), Contains(other));
    host.close();
  }
}

TEST_F(FileHostSteps, FirstPieceOfOneToThreeBytesIsAFatalErrorOnFilesToo) {
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.setIPCFileFolderPath(folder_ / "ipc");
  host.openWithMessengeHandler(&delegate_);
  host.onMessage("abc");
  EXPECT_THAT(delegate_.failures, ElementsAre("Message data size ( 3 ) less than 'sizeOfSize', no pending data."));
  host.onMessage(header(5) + "ab");
  host.onMessage("");
  EXPECT_EQ(delegate_.failures.size(), 1u) << "an empty piece inside of a message is ignored as well";
  EXPECT_EQ(host.pendingDataSize, 3u);
  host.close();
}

}  // namespace

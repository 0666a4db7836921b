#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageHost.h>

#include "platform/platform.h"
#include "tests/messaging/MessageHosts.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/PipeChannels.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sanitized.h"

// What can go wrong with a channel, brought about on real pipes.

namespace {

using namespace std::string_literals;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::frame;
using tks::test::header;
using tks::test::jsonOf;
using tks::test::kHello;
using tks::test::kSanitized;
using tks::test::LogRecorder;
using tks::test::messageOf;
using tks::test::PipeChannels;
using tks::test::RecordingDelegate;
using tks::test::residentBytes;

constexpr std::size_t kMebibyte = std::size_t{1} << 20;

/// How often this thread has waited for something, other than for its turn.
long waitsOfThisThread() {
  rusage usage{};
  ::getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nvcsw;
}

/// How this process deals with signals, as the kernel sees it.
std::string signalLines() {
  std::ifstream status("/proc/self/status");
  std::string lines;
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("SigBlk") || line.starts_with("SigIgn") || line.starts_with("SigCgt")) lines += line + "\n";
  }
  return lines;
}

class PipeFaultsTest : public testing::Test {
 protected:
  PipeFaultsTest() {
    host_ = std::make_unique<TKSMessageHost>(tksMessageHostTypeInterface);
    host_->openWithMessengeHandler(&delegate_);
  }

  void launcherWrites(std::string_view bytes) { ASSERT_TRUE(channels_.input->write(bytes)); }
  bool untilMessages(std::size_t count) {
    return drainUntil([&] { return delegate_.messages.size() >= count; });
  }
  bool untilFailures(std::size_t count) {
    return drainUntil([&] { return delegate_.failures.size() >= count; });
  }

  tks::test::FakeHostProcess process_;
  PipeChannels channels_;
  RecordingDelegate delegate_;
  std::unique_ptr<TKSMessageHost> host_;
};

TEST_F(PipeFaultsTest, FiftyFramesInOneWriteAllArriveInOrder) {
  std::string burst;
  for (int i = 0; i < 50; ++i) burst += frame(jsonOf(std::to_string(i)));
  launcherWrites(burst);
  ASSERT_TRUE(untilMessages(50));
  for (std::size_t i = 0; i < 50; ++i) EXPECT_EQ(delegate_.types()[i], std::to_string(i));
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(PipeFaultsTest, FrameThatArrivesOneByteAtATimeIsDeliveredOnce) {
  std::thread launcher([&] {
    for (const char c : frame(kHello)) {
      channels_.input->write(std::string_view(&c, 1));
      std::this_thread::sleep_for(1ms);
    }
  });
  EXPECT_TRUE(untilMessages(1));
  launcher.join();
  drainFor(5ms);
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(PipeFaultsTest, HeaderOfTheGreatestSizeTakesNoMemoryBeforeItsBytesArrive) {
  const std::size_t before = residentBytes();
  launcherWrites(header(10485760) + "{");
  ASSERT_TRUE(drainUntil([&] { return host_->pendingDataSize > 0; }));
  EXPECT_LT(residentBytes(), before + kMebibyte);
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(PipeFaultsTest, OversizeHeadersGiveTheTwoErrorsAndTakeNoMemory) {
  const std::size_t before = residentBytes();
  for (const std::uint32_t size : {10485761u, 4294967295u}) {
    delegate_.failures.clear();
    launcherWrites(header(size) + "whatever follows");
    ASSERT_TRUE(untilFailures(2));
    EXPECT_THAT(delegate_.failures[0], StartsWith("Unexpected telling data size: "));
    EXPECT_THAT(delegate_.failures[1], StartsWith("Error when parse JSON in [TKSMessagHost onMessage]."));
  }
  launcherWrites(frame(kHello));
  ASSERT_TRUE(untilMessages(1));
  EXPECT_THAT(delegate_.failures.size(), 2u);
  EXPECT_LT(residentBytes(), before + kMebibyte);
}

TEST_F(PipeFaultsTest, OversizeFrameThatReallyComesDoesNoHarm) {
  const std::string sent = frame(std::string(10485761, 'x'));
  const std::size_t before = residentBytes();
  std::atomic<bool> isSent = false;
  std::thread launcher([&] {
    channels_.input->write(sent);
    isSent = true;
  });
  EXPECT_TRUE(untilFailures(2));
  // However slow the launcher is: whoever stops reading before its last byte waits for it for ever.
  drainUntil([&] { return isSent.load(); });
  drainUntil([&, told = std::size_t{0}]() mutable { return std::exchange(told, delegate_.failures.size()) == told; });
  launcher.join();
  if (!kSanitized) {
    EXPECT_LT(residentBytes(), before + 4 * kMebibyte);
  }
  EXPECT_THAT(delegate_.messages, IsEmpty());
}

TEST_F(PipeFaultsTest, MessageOfTheGreatestSizeArrives) {
  std::string payload = jsonOf("large");
  const std::string filling(10485760 - payload.size(), 'x');
  payload = jsonOf("large", filling);
  ASSERT_EQ(payload.size(), 10485760u);
  std::thread launcher([&] { channels_.input->write(frame(payload)); });
  EXPECT_TRUE(untilMessages(1));
  launcher.join();
  ASSERT_EQ(delegate_.messages.size(), 1u);
  EXPECT_EQ(delegate_.messages[0].message, TKSValue(filling));
}

TEST_F(PipeFaultsTest, StalledPayloadHoldsWhatCameAndNothingElseHappens) {
  launcherWrites(header(300) + std::string(100, 'x'));
  ASSERT_TRUE(drainUntil([&] { return host_->receivedData.size() == 100; }));
  drainFor(30ms);
  EXPECT_EQ(host_->pendingDataSize, 200u);
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(PipeFaultsTest, StrayTextInTheChannelIsTheDescribedErrorAndTheNextWriteIsUnderstood) {
  launcherWrites("Hello\n");
  ASSERT_TRUE(untilFailures(2));
  EXPECT_THAT(delegate_.failures[0], StartsWith("Unexpected telling data size: 1819043144"));
  launcherWrites(frame(kHello));
  ASSERT_TRUE(untilMessages(1));
  EXPECT_EQ(delegate_.failures.size(), 2u);
}

TEST_F(PipeFaultsTest, PayloadsThatAreNoMessagesAreReportedOneByOneAndTheNextFrameIsUnderstood) {
  const std::string payloads[] = {"",
                                  "x",
                                  "{",
                                  "[]",
                                  "{}",
                                  "{\"message_type\":\"a\"}",
                                  jsonOf("a") + "x",
                                  std::string(30000, '['),
                                  "\xFF\xFE",
                                  "{\"message_type\":\"a\",\"message\":\"\0\"}"s};
  for (const std::string& payload : payloads) {
    delegate_.failures.clear();
    delegate_.messages.clear();
    launcherWrites(frame(payload) + frame(kHello));
    ASSERT_TRUE(untilMessages(1));
    EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
    EXPECT_EQ(delegate_.failures.size(), 1u);
  }
}

TEST_F(PipeFaultsTest, DeathInsideAFrameAndBetweenFramesIsTold) {
  launcherWrites(frame(kHello) + header(300) + std::string(146, 'x'));
  channels_.launcherDies();
  ASSERT_TRUE(untilFailures(1));
  EXPECT_THAT(delegate_.types(), ElementsAre("hello"));
  EXPECT_EQ(delegate_.failures[0], "Message data empty ( 0 ), pending data expected.");
}

TEST_F(PipeFaultsTest, FirstFrameAfterABrokenConversationIsReadAsAFrame) {
  launcherWrites(header(10) + "abc");
  ASSERT_TRUE(drainUntil([&] { return host_->pendingDataSize > 0; }));
  host_->close();
  host_->openWithMessengeHandler(&delegate_);
  EXPECT_EQ(host_->pendingDataSize, 0u);
  launcherWrites(frame(kHello));
  ASSERT_TRUE(untilMessages(1));
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(PipeFaultsTest, MillionMessagesToASlowHostStayInOrderAndTakeNoMemory) {
  const std::size_t kMessages = kSanitized ? 50'000 : 1'000'000;
  std::atomic<std::size_t> written = 0;
  std::thread launcher([&] {
    std::string chunk;
    for (std::size_t i = 0; i < kMessages; ++i) {
      chunk += frame(jsonOf(std::to_string(i)));
      if (i % 1000 != 999) continue;
      channels_.input->write(chunk);
      chunk.clear();
      written = i + 1;
    }
  });
  // As long as the host does not drain its loop, the launcher is held up by the pipe.
  std::this_thread::sleep_for(50ms);
  EXPECT_LT(written, kMessages / 2);

  std::size_t next = 0;
  bool inOrder = true;
  std::size_t settled = 0;
  delegate_.onMessage = [&](const TKSMessage& received) {
    inOrder = inOrder && received.messageType == std::to_string(next);
    ++next;
    delegate_.messages.clear();
    delegate_.senders.clear();
    if (next == kMessages / 10) settled = residentBytes();
  };
  EXPECT_TRUE(drainUntil([&] { return next == kMessages; }, 50s));
  launcher.join();
  EXPECT_TRUE(inOrder);
  if (!kSanitized) {
    EXPECT_LT(residentBytes(), settled + 2 * kMebibyte);
  }
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(PipeFaultsTest, HostWhoseLoopStandsStillMissesNothingAndKeepsNothing) {
  std::atomic<bool> stop = false;
  std::atomic<std::size_t> written = 0;
  std::thread launcher([&] {
    for (std::size_t i = 0; !stop; ++i) {
      if (!channels_.input->write(frame(jsonOf(std::to_string(i))))) return;
      written = i + 1;
    }
  });
  std::size_t posted = 0;
  std::vector<std::size_t> ran;
  const auto timer = tks::platform::mainLoop().after(1s, [&] { ran.push_back(1'000'000); });
  const std::size_t before = residentBytes();
  // It stands still until the launcher no longer gets rid of anything, and well over its timer.
  std::size_t held = 0;
  do {
    held = written;
    tks::platform::mainLoop().post([&ran, number = posted++] { ran.push_back(number); });
    std::this_thread::sleep_for(300ms);
  } while (held != written || posted < 5);
  EXPECT_TRUE(delegate_.messages.empty());
  EXPECT_LT(held, 100'000u) << "the launcher is held up by the pipe";
  if (!kSanitized) {
    EXPECT_LT(residentBytes(), before + kMebibyte);
  }

  stop = true;
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() >= held && ran.size() == posted + 1; }));
  drainUntil([&] { return delegate_.messages.size() == written; });
  launcher.join();
  for (std::size_t i = 0; i < delegate_.messages.size(); ++i) ASSERT_EQ(delegate_.types()[i], std::to_string(i));
  std::erase(ran, 1'000'000u);
  EXPECT_TRUE(std::is_sorted(ran.begin(), ran.end()));
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(PipeFaultsTest, WritingToALauncherThatIsGoneIsALineAndTheProcessSurvives) {
  struct sigaction disposition {};
  ::sigaction(SIGPIPE, nullptr, &disposition);
  ASSERT_EQ(disposition.sa_handler, SIG_DFL);
  const std::string before = signalLines();
  channels_.launcherDies();
  const LogRecorder log;
  for (int i = 0; i < 3; ++i) host_->sendMessage(messageOf("hello", "hello"));
  ASSERT_EQ(log.texts(8).size(), 3u);
  EXPECT_THAT(log.texts(8)[0], StartsWith("Write message failed: Error Domain="));
  EXPECT_EQ(signalLines(), before);
  ASSERT_TRUE(untilFailures(1)) << "the conversation learns of it through its reader";
}

TEST_F(PipeFaultsTest, LauncherThatDoesNotReadHoldsUpNobody) {
  // The receiver takes frames of the largest size: bodies that make exactly such.
  const auto large = [](int number) {
    const std::string empty = jsonOf(std::to_string(number));
    return messageOf(std::to_string(number), std::string(10485760 - empty.size(), 'x'));
  };
  const LogRecorder log;
  // How often a call gave the processor away; the least of four.
  long fewestWaits = std::numeric_limits<long>::max();
  for (int i = 0; i < 4; ++i) {
    const TKSMessage next = large(i);
    const long before = waitsOfThisThread();
    // Nobody reads: a call that waited for a reader would never come back.
    host_->sendMessage(next);
    fewestWaits = std::min(fewestWaits, waitsOfThisThread() - before);
  }
  EXPECT_EQ(fewestWaits, 0) << "a call waited for something, if only for a while";
  EXPECT_THAT(log.texts(8), IsEmpty());
  host_->sendMessage(large(4));
  host_->sendMessage(large(5));
  ASSERT_FALSE(log.texts(8).empty());
  EXPECT_THAT(log.texts(8)[0], StartsWith("Write message failed: "));
  const std::size_t refused = log.texts(8).size();

  std::vector<std::string> starts;
  std::thread launcher([&] {
    for (std::size_t i = 0; i < 6 - refused; ++i) {
      const std::string payload = channels_.output->readFrame();
      starts.push_back(std::to_string(payload.size()) + payload.substr(payload.size() - 4));
    }
  });
  std::atomic<bool> read = false;
  std::thread waiter([&] {
    launcher.join();
    read = true;
  });
  EXPECT_TRUE(drainUntil([&] { return read.load(); }));
  waiter.join();
  for (std::size_t i = 0; i < starts.size(); ++i) EXPECT_EQ(starts[i], "10485760\"" + std::to_string(i) + "\"}");
}

TEST_F(PipeFaultsTest, InterruptionsLoseAndDoubleNothing) {
  TKS_IN_FRESH_PROCESS();
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval interval{.it_interval = {0, 1000}, .it_value = {0, 1000}};
  ::setitimer(ITIMER_REAL, &interval, nullptr);

  constexpr std::size_t kMessages = 300;
  std::thread launcher([&] {
    for (std::size_t i = 0; i < kMessages; ++i) channels_.input->write(frame(channels_.output->readFrame()));
  });
  for (std::size_t i = 0; i < kMessages; ++i) {
    host_->sendMessage(messageOf(std::to_string(i), std::string(i * 1000, 'x')));
    EXPECT_TRUE(untilMessages(i + 1));
  }
  launcher.join();
  for (std::size_t i = 0; i < kMessages; ++i) {
    EXPECT_EQ(delegate_.messages[i].messageType, std::to_string(i));
    EXPECT_EQ(delegate_.messages[i].message.text().size(), i * 1000);
  }
  EXPECT_THAT(delegate_.failures, IsEmpty());
}

TEST_F(PipeFaultsTest, FramesOfEightThreadsArriveWhole) {
  constexpr int kThreads = 8;
  const int kFrames = kSanitized ? 1'000 : 10'000;
  std::vector<int> next(kThreads, 0);
  bool whole = true;
  std::thread launcher([&] {
    for (int i = 0; i < kThreads * kFrames && whole; ++i) {
      const std::string payload = channels_.output->readFrame();
      whole = payload.size() > 20;
      if (!whole) return;
      const auto thread = static_cast<std::size_t>(payload[payload.size() - 3] - '0');
      const auto filling = static_cast<std::size_t>(next[thread] % 200);
      whole = payload == jsonOf(std::to_string(thread), std::to_string(next[thread]) + std::string(filling, 'x'));
      ++next[thread];
    }
  });
  std::vector<std::thread> threads;
  std::atomic<int> running = kThreads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kFrames; ++i) {
        host_->sendMessage(
            messageOf(std::to_string(t), std::to_string(i) + std::string(static_cast<std::size_t>(i % 200), 'x')));
      }
      --running;
    });
  }
  std::atomic<bool> read = false;
  std::thread waiter([&] {
    launcher.join();
    read = true;
  });
  EXPECT_TRUE(drainUntil([&] { return read.load() && running == 0; }, 50s));
  for (std::thread& thread : threads) thread.join();
  waiter.join();
  EXPECT_TRUE(whole);
  EXPECT_EQ(next, std::vector<int>(kThreads, kFrames));
}

TEST_F(PipeFaultsTest, ThousandConversationsLeaveNoDescriptorBehind) {
  host_->close();
  const auto before = tks::test::openDescriptors();
  for (int i = 0; i < 1000; ++i) {
    channels_.input = std::make_shared<tks::test::Pipe>();
    channels_.output = std::make_shared<tks::test::Pipe>();
    host_->openWithMessengeHandler(&delegate_);
    host_->sendMessage(messageOf("hello", "hello"));
    launcherWrites(frame(kHello));
    ASSERT_TRUE(untilMessages(1));
    delegate_.messages.clear();
    host_->close();
  }
  EXPECT_EQ(tks::test::openDescriptors().size(), before.size());
}

TEST_F(PipeFaultsTest, ClosedHostHoldsNoEndOfThePipe) {
  const auto input = channels_.input;
  const auto output = channels_.output;
  host_->sendMessage(messageOf("hello", "hello"));
  host_->close();
  output->closeWriter();
  EXPECT_EQ(output->read(1000), frame(kHello)) << "the launcher sees the end";
  input->closeReader();
  pollfd launchers{.fd = input->writer(), .events = POLLOUT, .revents = 0};
  ::poll(&launchers, 1, 0);
  EXPECT_TRUE(launchers.revents & POLLERR) << "nobody is left to read what the launcher writes";
}

}  // namespace

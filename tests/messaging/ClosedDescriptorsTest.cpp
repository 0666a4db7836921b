#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSIMessageHandler.h>
#include <tksinterface/TKSMainLoop.h>

#include "platform/platform.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/FakeLauncher.h"
#include "tests/support/Frames.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"

#include "tests/support/PipeChannels.h"
#include "tests/support/ProcessState.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TemporaryFolder.h"

// A host that closes descriptors which are not its own, and opens files that get their numbers.

namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::frame;
using tks::test::LogRecorder;
using tks::test::openDescriptors;
using tks::test::RecordingDelegate;

constexpr const char* kHello = R"({"message":"hello","message_type":"hello"})";
constexpr const char* kLoopsLine =
    "The descriptors of the main loop were closed by somebody else, it goes on with new ones.";

class ClosedDescriptors : public testing::Test {
 protected:
  /// The descriptors that are there now are the host's own.
  void begin() { own_ = openDescriptors(); }

  /// Closes all others, and lets a file have their numbers.
  void closeTheLibrarys() {
    std::vector<int> closed;
    for (const int descriptor : openDescriptors()) {
      if (own_.contains(descriptor)) continue;
      ::close(descriptor);
      closed.push_back(descriptor);
    }
    ASSERT_THAT(closed, testing::Not(IsEmpty()));
    const int file = ::open((folder_ / "file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    for (const int number : closed) {
      if (number != file) ::dup3(file, number, O_CLOEXEC);
    }
    own_.insert(closed.begin(), closed.end());
  }
  void expectTheFileIsUntouched() {
    EXPECT_EQ(tks::test::contentOf(folder_ / "file"), "");
    for (const int descriptor : openDescriptors()) own_.erase(descriptor);
    EXPECT_THAT(own_, IsEmpty()) << "none of the host's was closed";
  }

  tks::test::FakeHostProcess process_;
  tks::test::TemporaryFolder folder_;
  std::set<int> own_;
};

TEST_F(ClosedDescriptors, EndTheConversationOnceAndTheNextOneHasNewOnes) {
  TKS_IN_FRESH_PROCESS();
  tks::test::PipeChannels channels;
  TKSIMessageHandler handler;
  TKSIAppStatus status = TKSI_APP_STATUS_STARTING;
  handler.notifyStatusBlock = [&](TKSIAppStatus now) { status = now; };
  handler.queryStatusBlock = [&] { return status; };
  std::vector<std::string> calls;
  const auto greet = [&] {
    handler.sendHelloMessage([&] { calls.emplace_back("hello"); },
                             [&](const TKSError& error) { calls.push_back(error.localizedDescription); });
  };
  begin();
  greet();
  TKSMainLoop::drain();
  const LogRecorder log;
  closeTheLibrarys();
  ASSERT_TRUE(drainUntil([&] { return !calls.empty(); }));
  drainFor(50ms);
  EXPECT_THAT(calls, ElementsAre(StartsWith("Message data size ( 0 ) less than 'sizeOfSize'")));
  EXPECT_EQ(status, TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_THAT(log.texts(8), ElementsAre(kLoopsLine, HasSubstr("Bad file descriptor"),
                                        StartsWith("Handle fatal error: "), StartsWith("Handle message host fatal")));
  expectTheFileIsUntouched();

  calls.clear();
  status = TKSI_APP_STATUS_STARTING;
  channels.input = std::make_shared<tks::test::Pipe>();
  channels.output = std::make_shared<tks::test::Pipe>();
  greet();
  EXPECT_EQ(channels.output->readFrame(), kHello);
  ASSERT_TRUE(channels.input->write(frame(R"({"message_type":"hello_ack","message":""})")));
  ASSERT_TRUE(drainUntil([&] { return !calls.empty(); }));
  EXPECT_THAT(calls, ElementsAre("hello"));
}

TEST_F(ClosedDescriptors, OfAMessageFileAreAFatalErrorOnce) {
  TKS_IN_FRESH_PROCESS();
  process_.bundleIdentifier = "Tarvo-Systems.Ember";
  RecordingDelegate delegate;
  begin();
  TKSMessageHost host(tksMessageHostTypeInterface);
  host.setIPCFileFolderPath(folder_ / "ipc");
  host.openWithMessengeHandler(&delegate);
  TKSMainLoop::drain();
  closeTheLibrarys();
  ASSERT_TRUE(drainUntil([&] { return !delegate.failures.empty(); }));
  drainFor(50ms);
  EXPECT_THAT(delegate.failures, ElementsAre(HasSubstr("Bad file descriptor")));
  TKSMessage message;
  message.messageType = "hello";
  host.sendMessage(message);
  host.close();
  expectTheFileIsUntouched();
}

TEST_F(ClosedDescriptors, DoNotMakeTheRunningLoopSpin) {
  TKS_IN_FRESH_PROCESS();
  begin();
  const LogRecorder log;
  const auto close = tks::platform::mainLoop().after(0ms, [&] { closeTheLibrarys(); });
  bool rang = false;
  const auto timer = tks::platform::mainLoop().after(50ms, [&] { rang = true; });
  std::thread stops([&] {
    std::this_thread::sleep_for(500ms);
    tks::platform::mainLoop().post([] { TKSMainLoop::stop(); });
  });
  const auto processorTime = [] {
    rusage usage{};
    ::getrusage(RUSAGE_THREAD, &usage);
    return std::chrono::seconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           std::chrono::microseconds(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
  };
  const auto before = processorTime();
  TKSMainLoop::run();
  EXPECT_LT(processorTime() - before, tks::test::kSanitized ? 300ms : 100ms);
  stops.join();
  EXPECT_TRUE(rang) << "timers go on";
  EXPECT_THAT(log.texts(8), ElementsAre(kLoopsLine));
  expectTheFileIsUntouched();
}

TEST_F(ClosedDescriptors, OfAChildDoNotHideItsEnd) {
  TKS_IN_FRESH_PROCESS();
  const tks::test::FakeLauncher launcher;
  std::optional<tks::platform::ChildEnd> end;
  begin();
  ASSERT_GT(tks::platform::childProcesses().start(
                {launcher.executable(), {"-Communicate", "File"}, false},
                [&](tks::platform::ChildEnd how) { end = how; }, nullptr),
            0);
  drainFor(50ms);
  closeTheLibrarys();
  drainFor(50ms);
  EXPECT_FALSE(end) << "it still runs";
  launcher.endAll();
  ASSERT_TRUE(drainUntil([&] { return end.has_value(); }));
  EXPECT_EQ(end->how, tks::platform::ChildEnd::How::killed);
  expectTheFileIsUntouched();
}

}  // namespace

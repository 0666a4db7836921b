#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSMessageHost.h>

#include "messaging/Transport.h"
#include "platform/platform.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/PipeChannels.h"
#include "tests/support/TemporaryFolder.h"

// A host that forks without starting another program has two processes with the same descriptors. Only the first one
// goes on with the conversation.

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::drainUntil;
using tks::test::frame;
using tks::test::LogRecorder;
using tks::test::RecordingDelegate;

constexpr const char* kHello = R"({"message":"hello","message_type":"hello"})";

TKSMessage hello() {
  TKSMessage message;
  message.messageType = "hello";
  message.message = "hello";
  return message;
}

/// Does something in a copy of this process; whether it came to a good end there.
bool succeedsInACopy(const std::function<bool()>& work) {
  const pid_t copy = ::fork();
  if (copy == 0) ::_exit(work() ? 0 : 1);
  int status = 0;
  return copy > 0 && ::waitpid(copy, &status, 0) == copy && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool loopHasWork() {
  pollfd watched{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0};
  return ::poll(&watched, 1, 0) == 1;
}

class ForkedCopy : public testing::Test {
 protected:
  /// What a copy may try with the conversation.
  bool triesEverything() {
    const LogRecorder log;
    host_->sendMessage(hello());
    TKSMainLoop::stop();
    TKSMainLoop::drain();
    TKSMainLoop::run();
    tks::platform::mainLoop().post([] {});
    const auto timer = tks::platform::mainLoop().after(1ms, [] {});
    host_->close();
    host_.reset();
    return log.texts(8).size() == 1 &&
           log.texts(8)[0] == "This process is a copy made by fork without exec, 'sendMessage:' does nothing in it.";
  }

  /// The loop of this process still wakes up for what is posted and for timers.
  void expectTheLoopWorks() {
    bool posted = false;
    std::thread([&] { tks::platform::mainLoop().post([&] { posted = true; }); }).join();
    bool rang = false;
    const auto timer = tks::platform::mainLoop().after(1ms, [&] { rang = true; });
    EXPECT_TRUE(drainUntil([&] { return posted && rang; }));
  }

  tks::test::FakeHome home_;
  tks::test::FakeHostProcess process_;
  tks::test::TemporaryFolder folder_;
  RecordingDelegate delegate_;
  std::unique_ptr<TKSMessageHost> host_;
};

TEST_F(ForkedCopy, LeavesAConversationOverFilesAsItIs) {
  TKS_IN_FRESH_PROCESS();
  process_.bundleIdentifier = "Tarvo-Systems.Ember";
  host_ = std::make_unique<TKSMessageHost>(tksMessageHostTypeInterface);
  const std::string folder = tks::messaging::Transport::of(*host_).useNewFolder(folder_ / "ipcFile_0315142233045");
  host_->openWithMessengeHandler(&delegate_);
  host_->sendMessage(hello());
  TKSMainLoop::drain();
  ASSERT_FALSE(loopHasWork());

  EXPECT_TRUE(succeedsInACopy([&] { return triesEverything(); }));
  EXPECT_FALSE(loopHasWork()) << "the copy's calls are not this process's";
  EXPECT_EQ(tks::test::contentOf(folder + "/ipcFile_Interface2TKS"), frame(kHello));
  const int file = ::open((folder + "/ipcFile_Interface2TKS").c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_EQ(::flock(file, LOCK_EX | LOCK_NB), -1) << "the folder is still marked as somebody's";
  ::close(file);
  std::ofstream(folder + "/ipcFile_TKS2Interface", std::ios::binary | std::ios::app) << frame(kHello);
  EXPECT_TRUE(drainUntil([&] { return !delegate_.messages.empty(); }));
  expectTheLoopWorks();
  EXPECT_THAT(delegate_.failures, IsEmpty());
  host_->close();
  EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST_F(ForkedCopy, LeavesAConversationOverPipesAsItIs) {
  TKS_IN_FRESH_PROCESS();
  tks::test::PipeChannels channels;
  host_ = std::make_unique<TKSMessageHost>(tksMessageHostTypeInterface);
  host_->openWithMessengeHandler(&delegate_);
  TKSMainLoop::drain();
  ASSERT_TRUE(channels.input->write(frame(kHello)));
  EXPECT_TRUE(succeedsInACopy([&] { return triesEverything() && delegate_.messages.empty(); }));
  EXPECT_TRUE(drainUntil([&] { return delegate_.messages.size() == 1; })) << "the copy has taken nothing away";
  host_->sendMessage(hello());
  host_->close();
  channels.output->closeWriter();
  EXPECT_EQ(channels.output->read(1000), frame(kHello)) << "the copy has sent nothing";
  expectTheLoopWorks();
}

TEST_F(ForkedCopy, OpensNothing) {
  TKS_IN_FRESH_PROCESS();
  process_.bundleIdentifier = "Tarvo-Systems.Ember";
  TKSMainLoop::descriptor();
  EXPECT_TRUE(succeedsInACopy([&] {
    const LogRecorder log;
    TKSMessageHost host(tksMessageHostTypeInterface);
    host.setIPCFileFolderPath(folder_ / "ipc");
    host.openWithMessengeHandler(&delegate_);
    return !host.isOpened && TKSMainLoop::descriptor() == -1 && log.texts(8).size() == 1;
  }));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "ipc"));
}

TEST_F(ForkedCopy, OfAProcessThatHasNotUsedTheLibraryIsOneLikeAnyOther) {
  TKS_IN_FRESH_PROCESS();
  EXPECT_TRUE(succeedsInACopy([&] {
    bool ran = false;
    tks::platform::mainLoop().post([&] { ran = true; });
    return drainUntil([&] { return ran; });
  }));
}

}  // namespace

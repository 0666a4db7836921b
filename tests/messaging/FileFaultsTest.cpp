#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMainLoop.h>
#include <tksinterface/TKSMessageHost.h>

#include "tests/messaging/MessageHosts.h"
#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHome.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TemporaryFolder.h"

// What can go wrong with a channel over files.

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::frame;
using tks::test::jsonOf;
using tks::test::kHello;
using tks::test::kSanitized;
using tks::test::LogRecorder;
using tks::test::messageOf;
using tks::test::RecordingDelegate;

class FileFaultsTest : public testing::Test {
 protected:
  std::unique_ptr<TKSMessageHost> openHost(std::int32_t type, RecordingDelegate& delegate) {
    process_.arguments = {{"Communicate", "File"}, {"TempIPCFilePath", folder_ / "ipc"}};
    auto host = std::make_unique<TKSMessageHost>(type);
    host->openWithMessengeHandler(&delegate);
    return host;
  }
  std::string fromLauncher() const { return folder_ / "ipc/ipcFile_TKS2Interface"; }

  tks::test::FakeHome home_;
  tks::test::FakeHostProcess process_;
  tks::test::TemporaryFolder folder_;
  RecordingDelegate delegate_;
};

TEST_F(FileFaultsTest, FullDiskLeavesNoHalfFrameAndTheConversationGoesOnAfterwards) {
  TKS_IN_FRESH_PROCESS();
  const auto host = openHost(tksMessageHostTypeInterface, delegate_);
  const LogRecorder log;
  const rlimit limit{.rlim_cur = 65536, .rlim_max = RLIM_INFINITY};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  host->sendMessage(messageOf("first", std::string(40000, 'x')));
  host->sendMessage(messageOf("second", std::string(40000, 'y')));
  EXPECT_THAT(log.texts(8), ElementsAre(HasSubstr("Write message failed: Error Domain=")));
  const rlimit unlimited{.rlim_cur = RLIM_INFINITY, .rlim_max = RLIM_INFINITY};
  ::setrlimit(RLIMIT_FSIZE, &unlimited);
  host->sendMessage(messageOf("third", "z"));
  const auto payloads = tks::test::payloads(tks::test::contentOf(folder_ / "ipc/ipcFile_Interface2TKS"));
  ASSERT_EQ(payloads.size(), 2u);
  EXPECT_EQ(payloads[0], jsonOf("first", std::string(40000, 'x')));
  EXPECT_EQ(payloads[1], jsonOf("third", "z"));
}

TEST_F(FileFaultsTest, IdleChannelWakesNobodyAndAnswersWithinTwentyMilliseconds) {
  const auto host = openHost(tksMessageHostTypeInterface, delegate_);
  drainFor(50ms);
  // The loop of a host that only waits for its descriptor.
  pollfd watched{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0};
  EXPECT_EQ(::poll(&watched, 1, 2000), 0) << "woken while idle";

  // The best of many: a busy machine may hold up any one of them.
  auto fastest = std::chrono::steady_clock::duration::max();
  for (int i = 0; i < 50; ++i) {
    delegate_.messages.clear();
    const auto written = std::chrono::steady_clock::now();
    std::ofstream(fromLauncher(), std::ios::binary | std::ios::app) << frame(kHello);
    ASSERT_TRUE(drainUntil([&] { return !delegate_.messages.empty(); }));
    fastest = std::min(fastest, std::chrono::steady_clock::now() - written);
  }
  EXPECT_LT(fastest, 20ms);
}

TEST_F(FileFaultsTest, HundredThousandFramesGoThroughTheFilesInOrder) {
  const std::size_t kMessages = kSanitized ? 2'000 : 100'000;
  const auto host = openHost(tksMessageHostTypeInterface, delegate_);
  RecordingDelegate launchers;
  const auto launcher = openHost(tksMessageHostTypeTKS, launchers);
  for (std::size_t i = 0; i < kMessages; ++i) launcher->sendMessage(messageOf(std::to_string(i), ""));
  ASSERT_TRUE(drainUntil([&] { return delegate_.messages.size() == kMessages; }));
  for (std::size_t i = 0; i < kMessages; ++i) ASSERT_EQ(delegate_.messages[i].messageType, std::to_string(i));
}

}  // namespace

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSMessageHost.h>

#include "tests/messaging/RecordingDelegate.h"
#include "tests/support/FakeHostProcess.h"
#include "tests/support/Frames.h"
#include "tests/support/FreshProcess.h"
#include "tests/support/HostLoop.h"

#include "tests/support/PipeChannels.h"
#include "tests/support/ProcessTable.h"
#include "tests/support/Sanitized.h"

// What a process that talks once about something large keeps of it.

namespace {

using namespace std::chrono_literals;
using tks::test::drainFor;
using tks::test::drainUntil;
using tks::test::residentBytes;

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
constexpr std::size_t kLargest = 10 * kMebibyte;

class MemoryAfterFrames : public testing::Test {
 protected:
  static TKSMessage large() {
    TKSMessage message;
    message.messageType = "large";
    message.message = std::string(kLargest - 100, 'x');
    return message;
  }
  /// Sends frames of the greatest size to a launcher that sends each of them back.
  void talk(int frames) {
    std::thread launcher([&] {
      for (int i = 0; i < frames; ++i) channels_.input->write(tks::test::frame(channels_.output->readFrame()));
    });
    for (int i = 0; i < frames; ++i) {
      host_.sendMessage(large());
      EXPECT_TRUE(drainUntil([&] { return heard_ == i + 1; }, 30s));
    }
    launcher.join();
    heard_ = 0;
    delegate_.messages.clear();
  }
  void begin() {
    delegate_.onMessage = [this](const TKSMessage&) {
      ++heard_;
      delegate_.messages.clear();
    };
    host_.openWithMessengeHandler(&delegate_);
    drainFor(10ms);
  }

  tks::test::FakeHostProcess process_;
  tks::test::PipeChannels channels_;
  tks::test::RecordingDelegate delegate_;
  TKSMessageHost host_{tksMessageHostTypeInterface};
  int heard_ = 0;
};

TEST_F(MemoryAfterFrames, GoesBackWithinASecond) {
  TKS_IN_FRESH_PROCESS();
  if (tks::test::kSanitized) GTEST_SKIP() << "sanitizers keep what was freed";
  begin();
  const std::size_t before = residentBytes();
  talk(5);
  drainFor(1s);
  EXPECT_LT(residentBytes(), before + 12 * kMebibyte);
}

TEST_F(MemoryAfterFrames, IsKeptFromOneFrameToTheNext) {
  TKS_IN_FRESH_PROCESS();
  begin();
  const std::size_t before = residentBytes();
  talk(2);
  EXPECT_GE(residentBytes(), before + kLargest) << "it would be taken and given back for each of them";
  drainFor(1s);
  talk(1);
}

}  // namespace

#pragma once

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/interface/FakeWorld.h"
#include "tests/support/FakeBackgroundWork.h"
#include "tests/support/LogRecorder.h"

namespace tks::test {

/// A facade in a fake world; what it calls back stands in `calls_`, in order.
class FacadeTest : public testing::Test {
 protected:
  FacadeTest() {
    tks_.setTKSAppPath(world_.bundle());
    log_.clear();
  }

  TKSFinishBlock finish(const std::string& name = "finish") {
    return [this, name] { calls_.push_back(name); };
  }
  TKSErrorBlock error(const std::string& name = "error") {
    return [this, name](const TKSError& error) {
      calls_.push_back(name + ": " + error.localizedDescription);
      lastError_ = error;
    };
  }

  std::int32_t status() const { return tks_.appManager->TKSAppStatus; }
  std::vector<std::string> called() { return std::exchange(calls_, {}); }
  bool waitForStatus(std::int32_t wanted) {
    return drainUntil([&] { return status() == wanted; });
  }
  /// Until the launcher has heard something, which is returned.
  std::vector<std::string> waitUntilHeard() {
    drainUntil([&] { return !world_.channels.output->written.empty(); });
    return world_.heard();
  }
  /// Until everything that is due has been done, in the background too, and a moment longer for what must not happen.
  void settle() {
    do {
      ASSERT_TRUE(drainUntil([this] { return background_.isIdle(); }));
      drainFor(std::chrono::milliseconds(20));
    } while (!background_.isIdle());
  }

  /// From the beginning to a launcher that has been greeted and has not answered.
  void startUntilGreeted() {
    tks_.start(finish("started"), error("start failed"));
    ASSERT_THAT(waitUntilHeard(), testing::ElementsAre("hello"));
  }
  /// To status 3.
  void connect() {
    startUntilGreeted();
    world_.says("hello_ack");
    ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
    ASSERT_THAT(called(), testing::ElementsAre("started"));
  }
  /// To status 4, with a launch that the launcher has not answered.
  void launch(const TKSValue& param = TKSDictionary{{"gpcurlroot", "https://meet.example"}}) {
    tks_.launchMeetingWithParam(param, finish("launched"), error("launch failed"));
    ASSERT_THAT(waitUntilHeard(), testing::ElementsAre("hello"));
    world_.says("hello_ack");
    ASSERT_THAT(waitUntilHeard(), testing::ElementsAre("launch_meeting"));
    ASSERT_EQ(status(), TKSI_APP_STATUS_LAUNCHING);
    ASSERT_THAT(called(), testing::IsEmpty());
  }

  CountedBackgroundWork background_;
  FakeWorld world_;
  LogRecorder log_;
  std::vector<std::string> calls_;
  TKSError lastError_;
  TKSInterface tks_;
};

}  // namespace tks::test

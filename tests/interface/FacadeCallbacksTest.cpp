#include <stdexcept>

#include "tests/interface/FacadeTest.h"

// What callbacks do: call the facade again, throw, replace themselves.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using tks::test::drainUntil;
using tks::test::FacadeTest;

/// Where a callback is called from.
enum class Place { startFinish, startError, stopFinish, stopError, launchFinish, launchError, updateDone, pid, log };
enum class Operation { start, stop, launch, relaunch, cleanup, setPath, none };

constexpr Place kPlaces[] = {Place::startFinish, Place::startError,   Place::stopFinish,
                             Place::stopError,   Place::launchFinish, Place::launchError,
                             Place::updateDone,  Place::pid,          Place::log};
constexpr Operation kOperations[] = {Operation::start,    Operation::stop,    Operation::launch,
                                     Operation::relaunch, Operation::cleanup, Operation::setPath};
constexpr const char* kPlaceNames[] = {"StartFinish", "StartError", "StopFinish", "StopError", "LaunchFinish",
                                       "LaunchError", "UpdateDone", "Pid",        "Log"};
constexpr const char* kOperationNames[] = {"Start", "Stop", "Launch", "Relaunch", "Cleanup", "SetPath"};

class FacadeCallbacks : public FacadeTest, public testing::WithParamInterface<std::tuple<Place, Operation>> {
 protected:
  void answer(const std::string& type) {
    if (type == "launch_meeting") {
      world_.says("launch_meeting_ack", "{}");
    } else {
      world_.says(type + "_ack");
    }
  }
  void converse(std::chrono::milliseconds time = std::chrono::milliseconds(30)) {
    drainUntil(
        [&] {
          for (const std::string& type : world_.heard()) answer(type);
          return false;
        },
        time);
  }

  /// Calls the operation under test, the first time only.
  void callAgain() {
    if (std::exchange(called_, true)) return;
    const TKSFinishBlock done = [this] { ++inner_; };
    const TKSErrorBlock failed = [this](const TKSError&) { ++inner_; };
    switch (std::get<Operation>(GetParam())) {
      case Operation::start:
        return tks_.start(done, failed);
      case Operation::stop:
        return tks_.stop(done, failed);
      case Operation::launch:
        return tks_.launchMeetingWithParam(TKSDictionary(), done, failed);
      case Operation::relaunch:
        return tks_.relaunchTKSWhenUpdateDone(TKSDictionary(), done, failed);
      case Operation::cleanup:
        return tks_.cleanupConnectStatus4FileIPC();
      case Operation::setPath:
        return tks_.setTKSAppPath(world_.bundle());
      case Operation::none:
        return;
    }
  }

  TKSFinishBlock again() {
    return [this] {
      ++outer_;
      callAgain();
    };
  }
  TKSErrorBlock againOnError() {
    return [this](const TKSError&) {
      ++outer_;
      callAgain();
    };
  }

  /// Brings a callback of the place about.
  void reach(Place place) {
    switch (place) {
      case Place::startFinish:
        tks_.start(again(), nullptr);
        break;
      case Place::startError:
        startUntilGreeted();
        tks_.start(nullptr, againOnError());
        answer("hello");
        break;
      case Place::stopFinish:
        connect();
        tks_.stop(again(), nullptr);
        break;
      case Place::stopError:
        startUntilGreeted();
        tks_.stop(nullptr, againOnError());
        break;
      case Place::launchFinish:
        tks_.launchMeetingWithParam(TKSDictionary(), again(), nullptr);
        break;
      case Place::launchError:
        launch();
        tks_.launchMeetingWithParam(TKSDictionary{{"gpcdownloadonly", "1"}}, nullptr, againOnError());
        answer("launch_meeting");
        break;
      case Place::updateDone:
        launch();
        tks_.messageHandler->TKSUpdateDoneBlock = again();
        world_.says("host_notify");
        break;
      case Place::pid:
        tks_.launchedTKSPidBlock([this](std::int32_t) { again()(); });
        tks_.start(nullptr, nullptr);
        break;
      case Place::log:
        tks_.setLogBlock([this](std::int32_t, const std::string& line) {
          if (line == "Switch TKS app status to: CONNECTED" && outer_ == 0) again()();
        });
        tks_.start(nullptr, nullptr);
        break;
    }
  }

  bool called_ = false;
  int outer_ = 0;
  int inner_ = 0;
};

TEST_P(FacadeCallbacks, MayCallTheFacadeAgain) {
  reach(std::get<Place>(GetParam()));
  ASSERT_TRUE(drainUntil([&] {
    for (const std::string& type : world_.heard()) answer(type);
    return outer_ > 0;
  }));
  converse();
  EXPECT_EQ(outer_, 1);
  // Whatever happened, the facade can be stopped and used again.
  tks_.launchedTKSPidBlock(nullptr);
  tks_.setLogBlock(nullptr);
  const Operation operation = std::get<Operation>(GetParam());
  const int answers = operation != Operation::cleanup && operation != Operation::setPath ? 1 : 0;
  int stops = 0;
  ASSERT_TRUE(drainUntil([&] {
    for (const std::string& type : world_.heard()) answer(type);
    if (status() == TKSI_APP_STATUS_CONNECTED && stops++ == 0) tks_.stop(nullptr, nullptr);
    return status() == TKSI_APP_STATUS_UNCONNECTED && inner_ >= answers;
  }));
  EXPECT_EQ(inner_, answers);
  called();
  // A new launcher has pipes of its own.
  world_.channels.input = std::make_shared<tks::test::Wire>();
  world_.channels.output = std::make_shared<tks::test::Wire>();
  bool launched = false;
  tks_.launchMeetingWithParam(
      TKSDictionary(), [&] { launched = true; }, nullptr);
  ASSERT_TRUE(drainUntil([&] {
    for (const std::string& type : world_.heard()) answer(type);
    return launched && status() == TKSI_APP_STATUS_UNCONNECTED;
  }));
}

INSTANTIATE_TEST_SUITE_P(Each, FacadeCallbacks,
                         testing::Combine(testing::ValuesIn(kPlaces), testing::ValuesIn(kOperations)),
                         [](const auto& tested) {
                           return std::string(kPlaceNames[static_cast<int>(std::get<0>(tested.param))]) + "Calls" +
                                  kOperationNames[static_cast<int>(std::get<1>(tested.param))];
                         });

class FacadeThrowingCallbacks : public FacadeTest {
 protected:
  TKSFinishBlock throwing(const std::string& name) {
    return [this, name] {
      calls_.push_back(name);
      throw std::runtime_error("host " + name);
    };
  }
  TKSErrorBlock throwingError(const std::string& name) {
    return [this, name](const TKSError&) {
      calls_.push_back(name);
      throw 5;
    };
  }
  std::vector<std::string> complaints() {
    std::vector<std::string> found;
    for (const std::string& text : log_.texts(8)) {
      if (text.starts_with("Callback '")) found.push_back(text);
    }
    log_.clear();
    return found;
  }
};

TEST_F(FacadeThrowingCallbacks, OfEveryKindAreCaughtWithOneLineEach) {
  tks_.launchedTKSPidBlock([](std::int32_t) { throw std::runtime_error("host pid"); });
  tks_.start(throwing("started"), nullptr);
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  EXPECT_THAT(complaints(), ElementsAre("Callback 'launchedTKSPidBlock' threw an exception: host pid"));
  world_.says("hello_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_CONNECTED));
  EXPECT_THAT(complaints(), ElementsAre("Callback 'finishBlock' threw an exception: host started"));

  tks_.start(nullptr, nullptr);
  tks_.stop(throwing("stopped"), nullptr);
  world_.heard();
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_THAT(complaints(), ElementsAre("Callback 'finishBlock' threw an exception: host stopped"));

  tks_.stop(throwing("not needed"), nullptr);
  EXPECT_THAT(complaints(), ElementsAre("Callback 'finishBlock' threw an exception: host not needed"));

  tks_.setTKSAppPath("/nowhere/A.app");
  tks_.start(nullptr, throwingError("no launcher"));
  tks_.start(nullptr, throwingError("refused"));
  EXPECT_THAT(complaints(), ElementsAre("Callback 'errorBlock' threw an exception: unknown"));
  ASSERT_TRUE(drainUntil([&] { return calls_.back() == "no launcher"; }));
  EXPECT_THAT(complaints(), ElementsAre("Callback 'errorBlock' threw an exception: unknown"));
  EXPECT_EQ(status(), TKSI_APP_STATUS_UNCONNECTED);
  EXPECT_THAT(calls_, ElementsAre("started", "stopped", "not needed", "refused", "no launcher"));
}

TEST_F(FacadeThrowingCallbacks, DoNotKeepTheOthersFromBeingCalled) {
  connect();
  tks_.stop(throwing("first"), nullptr);
  tks_.stop(finish("second"), nullptr);
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_THAT(called(), ElementsAre("first", "second"));
}

TEST_F(FacadeThrowingCallbacks, OfALaunchLeaveTheConversationInOrder) {
  tks_.launchMeetingWithParam(TKSDictionary(), throwing("launched"), throwingError("failed"));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("launch_meeting"));
  world_.says("launch_meeting_ack", "{}");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("disconnect"));
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_THAT(called(), ElementsAre("launched"));
  EXPECT_THAT(complaints(), ElementsAre("Callback 'launchFinishBlock' threw an exception: host launched"));
}

}  // namespace

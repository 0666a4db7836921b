#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/interface/FacadeTest.h"

namespace {

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using tks::test::drainUntil;
using tks::test::FacadeTest;

/// What one call was told, in order.
struct Call {
  std::string operation;
  std::vector<std::string> told;
};

class FacadeThreads : public FacadeTest {
 protected:
  /// Drains, with a launcher that answers everything at once, until a condition holds.
  bool converseUntil(const std::function<bool()>& holds) {
    return drainUntil([&] {
      for (const std::string& type : world_.heard()) {
        if (type == "launch_meeting") {
          world_.says("launch_meeting_ack", "{}");
        } else {
          world_.says(type + "_ack");
        }
      }
      return holds();
    });
  }
  bool isQuiet() { return status() == TKSI_APP_STATUS_UNCONNECTED || status() == TKSI_APP_STATUS_CONNECTED; }
};

TEST_F(FacadeThreads, CallFromAnotherThreadIsDoneOnTheMainThread) {
  drainUntil([] { return true; });
  const std::thread::id here = std::this_thread::get_id();
  std::thread::id there;
  std::thread([&] {
    tks_.stop(
        [&] {
          calls_.push_back("stopped");
          there = std::this_thread::get_id();
        },
        error());
  }).join();
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_THAT(log_.lines(), IsEmpty());
  ASSERT_TRUE(drainUntil([&] { return !calls_.empty(); }));
  EXPECT_EQ(there, here);
}

TEST_F(FacadeThreads, CallsFromAnotherThreadKeepTheirOrder) {
  drainUntil([] { return true; });
  std::thread([&] {
    tks_.setBackupTKSAppPath("/b.app");
    tks_.setBackupTKSZipPath("/b.zip", "1");
    tks_.launchedTKSPidBlock([&](std::int32_t) { calls_.push_back("pid"); });
    tks_.setTKSAppPath("/nowhere/A.app");
    tks_.start(finish("first"), error("first failed"));
    tks_.launchMeetingWithParam(TKSDictionary(), finish("second"), error("second failed"));
    tks_.internalLaunchMeetingWithParam(TKSDictionary(), finish("third"), error("third failed"));
    tks_.cleanupConnectStatus4FileIPC();
    tks_.relaunchTKSWhenUpdateDone(TKSDictionary(), finish("fourth"), error("fourth failed"));
  }).join();
  ASSERT_TRUE(drainUntil([&] { return calls_.size() >= 4; }));
  settle();
  EXPECT_EQ(tks_.appManager->backupTKSAppPath, "/b.app");
  EXPECT_EQ(tks_.appManager->backupTKSZipPath, "/b.zip");
  const std::vector<std::string> calls = called();
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_EQ(calls.at(0), "second failed: TKS app in unexpected status: 2");
  EXPECT_EQ(calls.at(1), "third failed: Unexpected app status: 2");
}

TEST_F(FacadeThreads, StatusAndIdentifierMayBeReadAnywhere) {
  std::atomic<bool> over = false;
  std::thread reader([&] {
    while (!over) {
      std::ignore = tks_.isTKSAppProcessing() || tks_.isTKSAppSuspending() || tks_.connectedTKSAppPid() > 0;
    }
  });
  for (int i = 0; i < 20; ++i) {
    launch();
    world_.says("launch_meeting_ack", "{}");
    EXPECT_TRUE(converseUntil([&] { return status() == TKSI_APP_STATUS_UNCONNECTED; }));
    called();
  }
  over = true;
  reader.join();
}

class FacadeCrowd : public FacadeThreads {
 protected:
  static constexpr std::size_t kThreads = 8;
  static constexpr std::size_t kCallsOfEach = 100;

  FacadeCrowd() : calls_(kThreads * kCallsOfEach) {
    drainUntil([] { return true; });
    // Each launcher has its own pipes.
    tks_.launchedTKSPidBlock([this](std::int32_t) {
      world_.channels.input = std::make_shared<tks::test::Wire>();
      world_.channels.output = std::make_shared<tks::test::Wire>();
    });
  }

  void make(Call& call, unsigned choice, bool downloadOnly) {
    const TKSFinishBlock told = [&call] { call.told.push_back("finish"); };
    const TKSErrorBlock failed = [&call](const TKSError& error) { call.told.push_back(error.localizedDescription); };
    constexpr const char* kOperations[] = {"start", "stop", "launch"};
    call.operation = kOperations[choice];
    if (choice == 0) return tks_.start(told, failed);
    if (choice == 1) return tks_.stop(told, failed);
    tks_.launchMeetingWithParam(TKSDictionary{{"gpcdownloadonly", downloadOnly ? "1" : "0"}}, told, failed);
  }
  void makeCallsOf(std::size_t thread) {
    std::mt19937 random(static_cast<unsigned>(thread));
    for (std::size_t i = 0; i < kCallsOfEach; ++i) {
      const unsigned choice = static_cast<unsigned>(random() % 3);
      make(calls_[thread * kCallsOfEach + i], choice, choice == 2 && random() % 4 == 0);
      if (random() % 4 == 0) std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
    }
    --running_;
  }
  bool allAreTold() const {
    return std::all_of(calls_.begin(), calls_.end(), [](const Call& call) { return !call.told.empty(); });
  }

  std::vector<Call> calls_;
  std::atomic<std::size_t> running_ = kThreads;
};

TEST_F(FacadeCrowd, LosesNothingWhenEightThreadsStartStopAndLaunch) {
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([this, thread] { makeCallsOf(thread); });
  }
  EXPECT_TRUE(converseUntil([&] { return running_ == 0 && allAreTold() && isQuiet(); }));
  for (std::thread& thread : threads) thread.join();
  settle();

  for (const Call& call : calls_) {
    // A launch whose meeting was launched may still hear of a failure while the launcher takes its leave.
    const bool afterwards = call.operation == "launch" && call.told.size() == 2 && call.told.front() == "finish";
    EXPECT_TRUE(call.told.size() == 1 || afterwards) << call.operation << ": " << testing::PrintToString(call.told);
    EXPECT_THAT(call.told,
                Each(AnyOf("finish", "Unexpected app status: 2", "Unexpected app status: 4",
                           "TKS app in unexpected status: 2", "New coming job is download only, ignore it.",
                           "Previous launching job running, will stop it firstly.",
                           "Message host stopped before TKS answered hello.", "TKS disconnected before it answered.")));
  }
}

}  // namespace

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/interface/FacadeTest.h"

// A host whose main queue runs on changing threads, as in dispatch_main(): whoever asks the thread is told that none is
// the main one, also inside of main-thread work.

namespace {

using testing::ElementsAre;
using testing::StartsWith;
using tks::platform::MainLoop;
using tks::test::drainUntil;
using tks::test::FacadeTest;

/// Passes everything on to the loop in force before, and calls no thread the main one.
class LoopWithoutMainThread final : public MainLoop {
 public:
  void post(std::function<void()> work) override {
    ++posts_;
    replaced_.before().post(std::move(work));
  }
  std::unique_ptr<Timer> after(std::chrono::milliseconds delay, std::function<void()> work) override {
    return replaced_.before().after(delay, std::move(work));
  }
  bool isMainThread() override { return false; }
  void run() override { replaced_.before().run(); }
  void stop() override { replaced_.before().stop(); }
  int descriptor() override { return replaced_.before().descriptor(); }
  void drain() override { replaced_.before().drain(); }

  int posts() const { return posts_; }

 private:
  std::atomic<int> posts_ = 0;
  tks::platform::Replaced<MainLoop> replaced_{*this};
};

class FacadeWithoutMainThread : public FacadeTest {
 protected:
  /// How often work was posted for one operation, until nothing of it is left.
  int postsOf(const std::function<void()>& operation) {
    const int before = loop_.posts();
    operation();
    settle();
    return loop_.posts() - before;
  }

  LoopWithoutMainThread loop_;
};

TEST_F(FacadeWithoutMainThread, OperationPostsItselfOnce) {
  EXPECT_EQ(postsOf([this] { tks_.setTKSAppPath("/a.app"); }), 1);
  EXPECT_EQ(postsOf([this] { tks_.setBackupTKSAppPath("/b.app"); }), 1);
  EXPECT_EQ(postsOf([this] { tks_.setBackupTKSZipPath("/b.zip", "1"); }), 1);
  EXPECT_EQ(postsOf([this] { tks_.launchedTKSPidBlock(nullptr); }), 1);
  EXPECT_EQ(postsOf([this] { tks_.cleanupConnectStatus4FileIPC(); }), 1);
  EXPECT_EQ(postsOf([this] { tks_.stop(finish("stopped"), error()); }), 1);
  // This one goes on to look for a launcher, which is done elsewhere and told of once.
  EXPECT_EQ(postsOf([this] { tks_.internalLaunchMeetingWithParam(TKSDictionary(), finish(), error("failed")); }), 2);
  EXPECT_EQ(tks_.appManager->backupTKSAppPath, "/b.app");
  EXPECT_THAT(called(), ElementsAre("stopped", StartsWith("failed: Launch app failed. Path: /a.app")));
}

TEST_F(FacadeWithoutMainThread, WholeConversationIsHeld) {
  connect();
  tks_.launchMeetingWithParam(TKSDictionary{{"gpcurlroot", "https://meet.example"}}, finish("launched"),
                              error("launch failed"));
  ASSERT_THAT(waitUntilHeard(), ElementsAre("hello"));
  world_.says("hello_ack");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("launch_meeting"));
  world_.says("launch_meeting_ack", "{}");
  ASSERT_THAT(waitUntilHeard(), ElementsAre("disconnect"));
  world_.says("disconnect_ack");
  ASSERT_TRUE(waitForStatus(TKSI_APP_STATUS_UNCONNECTED));
  EXPECT_THAT(called(), ElementsAre("launched"));
  // Nothing goes round in the queue, which would keep a processor busy for ever.
  EXPECT_EQ(postsOf([] {}), 0);
}

TEST_F(FacadeWithoutMainThread, RelaunchReportsOnce) {
  EXPECT_LT(postsOf([this] { tks_.relaunchTKSWhenUpdateDone(TKSDictionary(), finish(), error("failed")); }), 10);
  EXPECT_LE(called().size(), 2u);
}

}  // namespace

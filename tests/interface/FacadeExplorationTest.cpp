#include <poll.h>

#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/interface/FacadeTest.h"
#include "tests/support/FakeBackgroundWork.h"
#include "tests/support/Orders.h"

// The callers of one facade, a launcher and its channel: every order of up to six of the things that they can do.
// Whatever meets whatever, each call hears of its end once.

namespace {

using tks::test::FakeWorld;
using tks::test::Orders;
using tks::test::PlayedBackground;
using tks::test::Wire;

enum class Deed { start, stop, launch, download, background, answer, errorText, errorObject, update, end };
constexpr const char* kDeedNames[] = {"start",  "stop",      "launch",      "download", "background",
                                      "answer", "errorText", "errorObject", "update",   "end"};

/// What one call was told, in order.
struct Call {
  Deed deed;
  std::vector<std::string> told;
};

class FacadeExploration : public testing::TestWithParam<Deed> {
 protected:
  static constexpr std::size_t kMostDeeds = 6;
  static constexpr std::size_t kMostDeedsBeforeTheEnd = 5;

  FacadeExploration() {
    world_.processes.onStart = [this] {
      // A new launcher has pipes of its own; the one before has said what it had to say.
      world_.channels.input = std::make_shared<Wire>();
      world_.channels.output = std::make_shared<Wire>();
      heard_.clear();
    };
  }

  /// One of the callbacks, counted from 1, destroys the facade.
  void onTold() {
    if (++told_ == destroyedBy_) tks_.reset();
  }

  void countPids() {
    tks_->launchedTKSPidBlock([this](std::int32_t) { onTold(); });
  }

  void begin() {
    told_ = 0;
    tks_ = std::make_unique<TKSInterface>();
    tks_->setTKSAppPath(world_.bundle());
    background_.queue.clear();
    heard_.clear();
    world_.channels.input = std::make_shared<Wire>();
    world_.channels.output = std::make_shared<Wire>();
    calls_.clear();
    story_.clear();
    // The counter of repeated greetings belongs to the process.
    TKSIMessageHandler().cleanupConnectStatus4FileIPC();
  }

  void settle() {
    pollfd watched{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0};
    do TKSMainLoop::drain();
    while (::poll(&watched, 1, 0) > 0);
    for (const std::string& type : world_.heard()) heard_.push_back(type);
  }

  std::vector<Deed> possible(std::size_t step) const {
    if (step == 0) return {GetParam()};
    std::vector<Deed> deeds = {Deed::start, Deed::stop, Deed::launch, Deed::download};
    if (!background_.queue.empty()) deeds.push_back(Deed::background);
    if (!tks_->messageHandler->messageHost->isOpened) return deeds;
    if (!heard_.empty()) deeds.push_back(Deed::answer);
    for (const Deed one : {Deed::errorText, Deed::errorObject, Deed::update, Deed::end}) deeds.push_back(one);
    return deeds;
  }

  void call(Deed deed) {
    calls_.push_back(std::make_unique<Call>(Call{deed, {}}));
    Call& one = *calls_.back();
    const TKSFinishBlock finish = [this, &one] {
      one.told.emplace_back("finish");
      onTold();
    };
    const TKSErrorBlock failed = [this, &one](const TKSError& error) {
      one.told.push_back(error.localizedDescription);
      onTold();
    };
    if (deed == Deed::start) return tks_->start(finish, failed);
    if (deed == Deed::stop) return tks_->stop(finish, failed);
    tks_->launchMeetingWithParam(TKSDictionary{{"gpcdownloadonly", deed == Deed::download ? "1" : "0"}}, finish,
                                 failed);
  }

  void answer() {
    const std::string type = heard_.front();
    heard_.pop_front();
    world_.says(type == "launch_meeting" ? "launch_meeting_ack" : type + "_ack", "{}");
    if (type == "disconnect") heard_.clear();  // the launcher is gone then
  }

  void perform(Deed deed) {
    story_ += std::string(kDeedNames[static_cast<int>(deed)]) + " ";
    switch (deed) {
      case Deed::background:
        background_.doNext();
        break;
      case Deed::answer:
        answer();
        break;
      case Deed::errorText:
        world_.says("error", "\"refused\"");
        break;
      case Deed::errorObject:
        world_.says("error", R"({"error_code":"2003","error_message":"failed"})");
        break;
      case Deed::update:
        world_.says("host_notify");
        break;
      case Deed::end:
        world_.channels.input->end();
        break;
      default:
        call(deed);
    }
    settle();
  }

  /// Whoever still waits is answered, and when nobody answers any more, the channel ends.
  void finish() {
    for (int round = 0; round < 30 && tks_; ++round) {
      if (!background_.queue.empty()) {
        background_.doNext();
      } else if (!heard_.empty() && tks_->messageHandler->messageHost->isOpened) {
        answer();
      } else if (tks_->messageHandler->messageHost->isOpened) {
        world_.channels.input->end();
      } else {
        break;
      }
      settle();
    }
  }

  /// Each call has heard of its end once. A launch may hear of a failure after its meeting was launched, and again when
  /// the launcher that has updated itself is asked once more.
  void expectToldOnce() {
    const bool updated = story_.find("update") != std::string::npos;
    for (const auto& one : calls_) {
      const bool launch = one->deed == Deed::launch || one->deed == Deed::download;
      const bool more = launch && !one->told.empty() && (updated || one->told.front() == "finish");
      EXPECT_TRUE(one->told.size() == 1 || more)
          << story_ << ": " << kDeedNames[static_cast<int>(one->deed)] << " " << testing::PrintToString(one->told);
    }
  }

  /// How often the host was called, and which call destroys the facade; 0: none.
  int told_ = 0;
  int destroyedBy_ = 0;
  FakeWorld world_;
  PlayedBackground background_;
  std::deque<std::string> heard_;
  std::vector<std::unique_ptr<Call>> calls_;
  std::string story_;
  std::unique_ptr<TKSInterface> tks_;
};

TEST_P(FacadeExploration, InEveryOrderEachCallHearsOfItsEndOnce) {
  std::size_t gone = 0;
  for (std::size_t length = 1; length <= kMostDeeds; ++length) {
    Orders orders;
    do {
      begin();
      for (std::size_t step = 0; step < length; ++step) {
        const std::vector<Deed> deeds = possible(step);
        perform(deeds[orders.choose(deeds.size())]);
      }
      finish();
      expectToldOnce();
      if (HasFailure()) return;
      tks_.reset();
      settle();
    } while (orders.next());
    gone += orders.count();
  }
  EXPECT_GT(gone, 3000u);
  RecordProperty("orders", static_cast<int>(gone));
}

/// The host's callback for identifiers of processes is one of them. What the facade touches afterwards shows under the
/// address sanitizer.
TEST_P(FacadeExploration, InEveryOrderEachCallbackMayDestroyTheFacade) {
  Orders orders;
  int destroyed = 0;
  do {
    begin();
    countPids();
    std::vector<Deed> order;
    for (std::size_t step = 0; step < kMostDeedsBeforeTheEnd; ++step) {
      const std::vector<Deed> deeds = possible(step);
      order.push_back(deeds[orders.choose(deeds.size())]);
      perform(order.back());
    }
    finish();
    const int calls = told_;
    for (destroyedBy_ = 1; destroyedBy_ <= calls; ++destroyedBy_, ++destroyed) {
      begin();
      countPids();
      for (const Deed deed : order) {
        if (tks_) perform(deed);
      }
      finish();
      ASSERT_EQ(tks_, nullptr) << story_ << "call " << destroyedBy_ << " of " << calls;
      // Whatever is still under way reaches nobody.
      for (const char* const late : {"hello_ack", "launch_meeting_ack", "error", "disconnect_ack"}) world_.says(late);
      world_.channels.input->end();
      background_.doAll();
      settle();
      ASSERT_EQ(told_, destroyedBy_) << story_;
    }
    destroyedBy_ = 0;
  } while (orders.next());
  EXPECT_GT(destroyed, 100);
}

INSTANTIATE_TEST_SUITE_P(BeginningWith, FacadeExploration,
                         testing::Values(Deed::start, Deed::stop, Deed::launch, Deed::download),
                         [](const auto& tested) { return std::string(kDeedNames[static_cast<int>(tested.param)]); });

}  // namespace

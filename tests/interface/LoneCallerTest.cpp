#include <poll.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "interface/Session.h"
#include "tests/interface/DescribedFacade.h"
#include "tests/interface/FakeWorld.h"
#include "tests/support/FakeBackgroundWork.h"
#include "tests/support/Orders.h"

// A single caller, who asks for the next thing when the last one has been answered: what the facade logs, sends and
// calls is what is described, line for line, and the session's table says the same. Every order of up to six of the
// things that can happen, with a launcher and without one.

namespace {

using tks::interface::Event;
using tks::interface::Fate;
using tks::interface::fateOf;
using tks::interface::Stage;
using tks::test::DescribedFacade;
using tks::test::FakeWorld;
using tks::test::Orders;
using tks::test::PlayedBackground;
using tks::test::Wire;

enum class Deed { start, stop, launch, download, relaunch, answer, errorText, errorObject, update, end };
constexpr const char* kDeedNames[] = {"start",  "stop",      "launch",      "download", "relaunch",
                                      "answer", "errorText", "errorObject", "update",   "end"};

/// Lines of operations beneath, which are described elsewhere.
bool isOfOperationsBeneath(std::string_view line) {
  constexpr std::string_view kBeginnings[] = {
      "Is INSIDER package.",       "Is Lab Device.",  "Is TEST Mode.",           "App doesn't exist.",
      "Try to clean up folder",    "Begin to remove", "No File exist at path: ", "Succeed to clean up folder",
      "Not removed: /nowhere.app",
  };
  return std::ranges::any_of(kBeginnings, [&](std::string_view one) { return line.starts_with(one); });
}

class LoneCaller : public testing::TestWithParam<std::tuple<bool, Deed>> {
 protected:
  /// Without a launcher nothing but the caller's own deeds can happen.
  static std::size_t mostDeeds() { return launcherIsThere() ? 6 : 3; }

  LoneCaller() {
    world_.processes.onStart = [this] { makeNewPipes(); };
    TKSILog::sharedInstance().setLogBlock([this](std::int32_t level, const std::string& text) {
      if (level > 1 && !isOfOperationsBeneath(text)) story_.push_back(std::to_string(level) + " " + text);
    });
  }
  ~LoneCaller() override { TKSILog::sharedInstance().setLogBlock(nullptr); }

  static bool launcherIsThere() { return std::get<bool>(GetParam()); }

  void makeNewPipes() {
    world_.channels.input = std::make_shared<Wire>();
    world_.channels.output = std::make_shared<Wire>();
    unanswered_.clear();
  }

  void begin() {
    const std::string bundle = launcherIsThere() ? world_.bundle() : "/nowhere/Launcher.app";
    described_ = std::make_unique<DescribedFacade>(bundle + "/Contents/MacOS/Launcher", launcherIsThere(),
                                                   world_.processes.nextPid());
    makeNewPipes();
    order_.clear();
    called_ = told_ = 0;
    hasStage_ = isMadeAgain_ = false;
    story_.clear();
    described_->setUp();
    tks_ = std::make_unique<TKSInterface>();
    tks_->setTKSAppPath(bundle);
    tks_->launchedTKSPidBlock([this](std::int32_t pid) { story_.push_back("pid: " + std::to_string(pid)); });
  }

  /// Until nothing is left to do.
  void settle() {
    pollfd watched{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0};
    do {
      background_.doAll();
      TKSMainLoop::drain();
    } while (::poll(&watched, 1, 0) > 0 || !background_.queue.empty());
    described_->doLater();
    for (const std::string& type : world_.heard()) {
      unanswered_.push_back(type);
      if (type == "hello") stage_ = Stage::greeting;
      if (type == "launch_meeting") stage_ = Stage::working;
    }
  }

  // What can happen.

  std::vector<Deed> possible() const {
    if (order_.empty()) return {std::get<Deed>(GetParam())};
    std::vector<Deed> deeds;
    const bool goodbyeIsUnderWay = !unanswered_.empty();
    if (called_ == told_ && !isMadeAgain_) {
      deeds = {Deed::stop};
      // A greeting after our goodbye meets it, and is no longer that of a lone caller.
      if (!goodbyeIsUnderWay || described_->status != TKSI_APP_STATUS_CONNECTED) {
        deeds.insert(deeds.end(), {Deed::start, Deed::launch, Deed::download, Deed::relaunch});
      }
    }
    if (!described_->isOpen) return deeds;
    if (!unanswered_.empty()) deeds.push_back(Deed::answer);
    deeds.push_back(Deed::errorText);
    // By the described steps alone, a greeting or a stop would never hear of its end after one of these.
    if (stage_ == Stage::working || stage_ == Stage::worked) {
      deeds.push_back(Deed::errorObject);
      deeds.push_back(Deed::update);
    }
    deeds.push_back(Deed::end);
    return deeds;
  }

  void perform(Deed deed) {
    order_ += std::string(kDeedNames[static_cast<int>(deed)]) + " ";
    // An error is the answer to what was asked, and no other follows.
    if (deed == Deed::errorText || deed == Deed::errorObject) {
      std::erase_if(unanswered_, [](const std::string& type) { return type != "disconnect"; });
    }
    switch (deed) {
      case Deed::answer:
        return answer();
      case Deed::errorText:
        return happens(Event::launcherRefused, "error", "\"refused\"");
      case Deed::errorObject:
        return happens(Event::jobRefused, "error", R"({"error_code":"2003","error_message":"failed"})");
      case Deed::update:
        // The launch is made again in the caller's name, and is another caller to whatever is called next.
        hasStage_ = false;
        isMadeAgain_ = true;
        return happens({}, "host_notify", "\"\"");
      case Deed::end:
        return happens(Event::channelFailed, "", "");
      default:
        return call(deed);
    }
  }

  void call(Deed deed) {
    ++called_;
    hasStage_ = true;
    const bool replaces = deed == Deed::launch && described_->status == TKSI_APP_STATUS_LAUNCHING;
    stage_ = replaces ? Stage::replacing : deed == Deed::stop ? Stage::stopping : Stage::starting;
    const auto finish = [this, number = called_] {
      story_.emplace_back("finish");
      told_ = std::max(told_, number);
    };
    const auto error = [this, number = called_](const TKSError& one) {
      story_.push_back("error: " + one.localizedDescription);
      told_ = std::max(told_, number);
    };
    const auto describedFinish = [this] { described_->story.emplace_back("finish"); };
    const auto describedError = [this](const std::string& text) { described_->story.push_back("error: " + text); };
    const TKSValue param = TKSDictionary{{"gpcdownloadonly", deed == Deed::download ? "1" : "0"}};
    switch (deed) {
      case Deed::start:
        described_->start(describedFinish, describedError);
        return tks_->start(finish, error);
      case Deed::stop:
        described_->stop(describedFinish, describedError);
        return tks_->stop(finish, error);
      case Deed::relaunch:
        described_->relaunch(param, describedFinish, describedError);
        return tks_->relaunchTKSWhenUpdateDone(param, finish, error);
      default:
        described_->launch(param, describedFinish, describedError);
        return tks_->launchMeetingWithParam(param, finish, error);
    }
  }

  void answer() {
    const std::string type = unanswered_.front();
    unanswered_.pop_front();
    if (type == "hello") return happens(Event::helloAnswered, "hello_ack", "\"\"");
    if (type == "launch_meeting") return happens(Event::launchAnswered, "launch_meeting_ack", "{}");
    unanswered_.clear();  // the launcher is gone then
    happens(Event::goodbyeAnswered, "disconnect_ack", "\"\"");
  }

  /// The launcher says something, or without a type its end of the pipe is closed.
  void happens(std::optional<Event> event, const std::string& type, const std::string& body) {
    if (type.empty()) {
      described_->end();
      world_.channels.input->end();
    } else {
      described_->receive(type, body);
      world_.says(type, body);
    }
    if (event && hasStage_ && told_ < called_) expectTheTable(*event, stage_);
  }

  // What is expected.

  void expectTheSameStory() {
    const auto [real, described] = std::ranges::mismatch(story_, described_->story);
    ASSERT_TRUE(real == story_.end() && described == described_->story.end())
        << order_ << "\nline " << real - story_.begin() << " is: " << (real == story_.end() ? "-" : *real)
        << "\nis described as: " << (described == described_->story.end() ? "-" : *described);
    story_.clear();
    described_->story.clear();
  }
  void expectTheSame() {
    expectTheSameStory();
    ASSERT_EQ(tks_->appManager->TKSAppStatus, described_->status) << order_;
    ASSERT_EQ(tks_->isTKSAppSuspending(), described_->status == TKSI_APP_STATUS_CONNECTED) << order_;
    ASSERT_EQ(tks_->isTKSAppProcessing(), described_->status == TKSI_APP_STATUS_LAUNCHING) << order_;
    ASSERT_EQ(tks_->connectedTKSAppPid(), described_->connectedPid) << order_;
    ASSERT_EQ(tks_->messageHandler->messageHost->isOpened, described_->isOpen) << order_;
  }

  /// What the session's table says of somebody at the caller's stage is what the described steps tell the caller.
  void expectTheTable(Event event, Stage stage) {
    const auto tells = [this](std::string_view beginning) {
      return std::ranges::any_of(described_->story,
                                 [&](const std::string& line) { return line.starts_with(beginning); });
    };
    // To a launch its greeting is done when its request goes out and has failed when it is stopped, and the goodbye of
    // the job before is done when it goes on.
    const bool finished =
        tells("finish") || tells(R"(2 Send message string: {"message":{)") || tells("2 Internal launch meeting");
    const bool isStopped = tells("2 -[TKSInterface stop:errorBlock:]");
    const bool failed = tells("error: ") || isStopped;
    if (isStopped) hasStage_ = false;
    const Fate fate = fateOf(event, stage);
    const bool done = fate == Fate::done;
    EXPECT_EQ(finished, fate == Fate::finish || (done && event == Event::launchAnswered)) << order_;
    EXPECT_EQ(failed, fate == Fate::fail || (done && event != Event::launchAnswered)) << order_;
    EXPECT_NE(fate, Fate::again) << order_;
  }

  FakeWorld world_;
  PlayedBackground background_;
  std::unique_ptr<DescribedFacade> described_;
  std::unique_ptr<TKSInterface> tks_;
  std::vector<std::string> story_;
  std::deque<std::string> unanswered_;
  std::string order_;
  /// Calls that were made, and the last one that heard of its end.
  int called_ = 0;
  int told_ = 0;
  /// What the caller waits for in the session. Nothing once the launcher updates itself, and after a launch whose
  /// greeting failed: then another operation goes on in the caller's name.
  Stage stage_ = Stage::starting;
  bool hasStage_ = false;
  bool isMadeAgain_ = false;
};

TEST_P(LoneCaller, SeesWhatIsDescribedLineForLineInEveryOrder) {
  Orders orders;
  do {
    begin();
    for (std::size_t step = 0; step < mostDeeds(); ++step) {
      const std::vector<Deed> deeds = possible();
      if (deeds.empty()) break;  // nobody would ever answer
      perform(deeds[orders.choose(deeds.size())]);
      settle();
      expectTheSame();
      if (HasFailure()) return;
    }
    described_->destroy();
    tks_.reset();
    settle();
    expectTheSameStory();
    if (HasFailure()) return;
  } while (orders.next());
  EXPECT_GT(orders.count(), launcherIsThere() ? 1000u : 10u);
  RecordProperty("orders", static_cast<int>(orders.count()));
}

INSTANTIATE_TEST_SUITE_P(BeginningWith, LoneCaller,
                         testing::Combine(testing::Bool(), testing::Values(Deed::start, Deed::stop, Deed::launch,
                                                                           Deed::download, Deed::relaunch)),
                         [](const auto& tested) {
                           return std::string(kDeedNames[static_cast<int>(std::get<Deed>(tested.param))]) +
                                  (std::get<bool>(tested.param) ? "" : "WithoutALauncher");
                         });

}  // namespace

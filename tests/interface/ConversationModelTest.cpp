#include <gtest/gtest.h>
#include <poll.h>

#include <deque>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "tests/interface/ConversationModel.h"
#include "tests/interface/FakeWorld.h"
#include "tests/support/FakeBackgroundWork.h"
#include "tests/support/PlayedTimers.h"

// The conversation as a machine: everything that can happen within twelve events, with up to three callers who wait at
// once. No state is without a way out, each callback is called once at most, and what the machine does the library
// does.

namespace {

using tks::test::ConversationModel;
using tks::test::FakeWorld;
using tks::test::PlayedBackground;
using tks::test::PlayedTimers;
using tks::test::Wire;
using Event = ConversationModel::Event;
using Path = std::vector<Event>;

constexpr std::size_t kDepth = 12;
constexpr std::size_t kMostWaiting = 3;
constexpr int kMostEventsOut = 60;

std::string shown(const Path& path) {
  std::string text;
  for (const Event event : path) text += std::string(ConversationModel::kNames[static_cast<int>(event)]) + " ";
  return text;
}

/// How often a caller was told, since its launch was made again.
struct Heard {
  int finishes = 0;
  int errors = 0;
};

struct State {
  ConversationModel model;
  std::map<int, Heard> heard;
  /// Calls that the host has made.
  int calls = 0;

  /// False when a callback is called a second time.
  bool take(Event event) {
    const std::vector<int> before = model.launchedAgain();
    model.happens(event, calls);
    if (ConversationModel::isHosts(event)) ++calls;
    bool once = true;
    for (const ConversationModel::Told& told : model.told) {
      Heard& heardBy = heard[told.caller];
      once = once && ++(told.finished ? heardBy.finishes : heardBy.errors) == 1;
    }
    for (const int caller : model.launchedAgain()) {
      if (std::ranges::count(before, caller) < std::ranges::count(model.launchedAgain(), caller)) heard[caller] = {};
    }
    return once;
  }
  std::string key() const {
    std::vector<int> callers;
    std::string text = model.key(callers);
    for (const int caller : callers) {
      const auto found = heard.find(caller);
      const Heard told = found == heard.end() ? Heard() : found->second;
      text += static_cast<char>('0' + 2 * told.finishes + told.errors);
    }
    return text;
  }
  /// Whether everything comes to its end when the host asks for nothing more: whoever is to answer answers, and then is
  /// gone.
  bool hasAWayOut() const {
    State state = *this;
    for (int events = 0; events < kMostEventsOut; ++events) {
      const std::vector<Event> possible = state.model.possible(0);
      if (possible.empty()) break;
      const auto has = [&](Event event) { return std::ranges::find(possible, event) != possible.end(); };
      const Event last = has(Event::quit) ? Event::quit : Event::end;
      state.take(has(Event::background) ? Event::background : has(Event::answer) ? Event::answer : last);
    }
    return state.model.status == 1 && !state.model.isOpen && state.model.waiting() == 0;
  }
};

/// All states within the depth, each with the shortest way to it; and every event in each of them.
class Exploration {
 public:
  struct Found {
    State state;
    std::size_t from;
    Event by;
    std::size_t depth;
  };
  struct Edge {
    std::size_t from;
    Event event;
  };

  explicit Exploration(std::size_t depth) {
    found_.push_back({{}, 0, Event::start, 0});
    numbers_.emplace(State().key(), 0);
    for (std::size_t i = 0; i < found_.size() && found_[i].depth < depth; ++i) {
      for (const Event event : found_[i].state.model.possible(kMostWaiting)) visit(i, event);
    }
  }

  const std::deque<Found>& states() const { return found_; }
  /// Those that lead to a state to which another way is as short: the ways to all others are parts of these.
  const std::vector<Edge>& edges() const { return edges_; }
  const std::string& objection() const { return objection_; }

  Path pathTo(std::size_t number) const {
    Path path;
    for (; number != 0; number = found_[number].from) path.insert(path.begin(), found_[number].by);
    return path;
  }
  Path pathOver(const Edge& edge) const {
    Path path = pathTo(edge.from);
    path.push_back(edge.event);
    return path;
  }

 private:
  void visit(std::size_t from, Event event) {
    State next = found_[from].state;
    if (!next.take(event)) objection_ = "a second call: " + shown(pathOver({from, event}));
    edges_.push_back({from, event});
    if (!numbers_.emplace(next.key(), found_.size()).second) return;
    found_.push_back({std::move(next), from, event, found_[from].depth + 1});
  }

  std::deque<Found> found_;
  std::unordered_map<std::string, std::size_t> numbers_;
  std::vector<Edge> edges_;
  std::string objection_;
};

/// The library with the same events.
class RealConversation {
 public:
  RealConversation() {
    world_.processes.onStart = [this] { makeNewPipes(); };
    tks_ = std::make_unique<TKSInterface>();
    tks_->setTKSAppPath(world_.bundle());
    // The counter of repeated greetings belongs to the process.
    TKSIMessageHandler().cleanupConnectStatus4FileIPC();
  }

  std::vector<ConversationModel::Told> told;
  std::string heard;

  int status() const { return tks_->appManager->TKSAppStatus; }
  bool isOpen() const { return tks_->messageHandler->messageHost->isOpened; }
  std::size_t backgroundWork() const { return background_.queue.size(); }
  /// Launchers before the last one whose pipes somebody still holds.
  std::size_t forgottenLaunchers() const {
    return static_cast<std::size_t>(std::ranges::count_if(wires_, [&](const std::weak_ptr<Wire>& wire) {
      const std::shared_ptr<Wire> held = wire.lock();
      return held && held != world_.channels.input && held != world_.channels.output;
    }));
  }

  void happens(Event event, int caller) {
    told.clear();
    perform(event, caller);
    settle();
  }
  /// Nobody is called any more.
  void destroy() {
    told.clear();
    tks_.reset();
    for (const char* const late : {"hello_ack", "launch_meeting_ack", "error", "disconnect_ack"}) world_.says(late);
    world_.channels.input->end();
    timers_.pass(std::chrono::seconds(1));
    background_.doAll();
    settle();
  }

 private:
  void makeNewPipes() {
    wires_.insert(wires_.end(), {world_.channels.input, world_.channels.output});
    world_.channels.input = std::make_shared<Wire>();
    world_.channels.output = std::make_shared<Wire>();
    heard.clear();
  }
  void settle() {
    pollfd watched{.fd = TKSMainLoop::descriptor(), .events = POLLIN, .revents = 0};
    do TKSMainLoop::drain();
    while (::poll(&watched, 1, 0) > 0);
    for (const std::string& type : world_.heard()) heard += type.front();
  }
  void perform(Event event, int caller) {
    const TKSFinishBlock finish = [this, caller] { told.push_back({caller, true}); };
    const TKSErrorBlock error = [this, caller](const TKSError&) { told.push_back({caller, false}); };
    const TKSValue param = TKSDictionary{{"gpcdownloadonly", event == Event::download ? "1" : "0"}};
    switch (event) {
      case Event::start:
        return tks_->start(finish, error);
      case Event::stop:
        return tks_->stop(finish, error);
      case Event::launch:
      case Event::download:
        return tks_->launchMeetingWithParam(param, finish, error);
      case Event::background:
        return background_.doNext();
      case Event::answer:
        return answer();
      case Event::errorText:
        return world_.says("error", "\"refused\"");
      case Event::errorObject:
        return world_.says("error", R"({"error_code":"2003","error_message":"failed"})");
      case Event::update:
        return world_.says("host_notify");
      case Event::end:
        return world_.channels.input->end();
      case Event::quit:
        world_.processes.end(world_.processes.count() - 1, {tks::platform::ChildEnd::How::exited, 0});
        settle();
        return timers_.pass(std::chrono::seconds(1));
    }
  }
  void answer() {
    const char message = heard.front();
    heard.erase(0, 1);
    if (message == 'd') heard.clear();  // the launcher is gone then
    world_.says(message == 'h' ? "hello_ack" : message == 'l' ? "launch_meeting_ack" : "disconnect_ack", "{}");
  }

  PlayedTimers timers_;
  FakeWorld world_;
  PlayedBackground background_;
  std::vector<std::weak_ptr<Wire>> wires_;
  std::unique_ptr<TKSInterface> tks_;
};

std::string shown(const std::vector<ConversationModel::Told>& told) {
  std::string text;
  for (const ConversationModel::Told& one : told) text += std::to_string(one.caller) + (one.finished ? "+ " : "- ");
  return text;
}

/// Goes along a path with the machine and with the library.
void expectAlike(const Path& path) {
  State machine;
  RealConversation library;
  Path gone;
  for (const Event event : path) {
    const int caller = machine.calls;
    gone.push_back(event);
    machine.take(event);
    library.happens(event, caller);
    const std::string where = shown(gone);
    ASSERT_EQ(library.status(), machine.model.status) << where;
    ASSERT_EQ(library.isOpen(), machine.model.isOpen) << where;
    ASSERT_EQ(shown(library.told), shown(machine.model.told)) << where;
    ASSERT_EQ(library.backgroundWork(), machine.model.backgroundWork()) << where;
    if (machine.model.isOpen) {
      ASSERT_EQ(library.heard, machine.model.heard) << where;
    }
    ASSERT_EQ(library.forgottenLaunchers(), 0u) << where;
  }
  library.destroy();
  ASSERT_EQ(shown(library.told), "") << shown(gone) << "destroy";
}

TEST(ConversationModel, HasNoStateWithoutAWayOutAndCallsNoCallbackTwice) {
  const Exploration all(kDepth);
  EXPECT_EQ(all.objection(), "");
  std::set<std::pair<int, bool>> seen;
  for (std::size_t i = 0; i < all.states().size(); ++i) {
    const State& state = all.states()[i].state;
    ASSERT_TRUE(state.hasAWayOut()) << shown(all.pathTo(i));
    seen.emplace(state.model.status, state.model.waiting() > 0);
  }
  EXPECT_EQ(seen.size(), 8u) << "each status, with and without somebody who waits";
  EXPECT_GT(all.states().size(), 100'000u);
  RecordProperty("states", static_cast<int>(all.states().size()));
  RecordProperty("events", static_cast<int>(all.edges().size()));
}

/// Every event in every state to which there is a way of so many events, and one in so many of the others.
void expectTheLibraryAlike(std::size_t depth, std::size_t everyUpTo, std::size_t oneIn) {
  const Exploration all(depth);
  std::mt19937 random(12);
  int ways = 0;
  for (const Exploration::Edge& edge : all.edges()) {
    if (all.states()[edge.from].depth >= everyUpTo && random() % oneIn != 0) continue;
    expectAlike(all.pathOver(edge));
    ++ways;
    if (testing::Test::HasFatalFailure()) return;
  }
  testing::Test::RecordProperty("ways", ways);
}

TEST(ConversationModel, IsWhatTheLibraryDoes) { expectTheLibraryAlike(8, 4, 40); }

TEST(ConversationModelEndurance, IsWhatTheLibraryDoesWithinTwelveEvents) { expectTheLibraryAlike(kDepth, 5, 100); }

}  // namespace

#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tks::test {

/// The conversation of one host with its launchers over pipes, as a machine of its own: who waits, what was said, which
/// of the conversation's callbacks are set, what is left for the background. A value that can be copied, compared by
/// `key`, and asked what may happen next. It knows callers that meet and none that call from within a callback.
class ConversationModel {
 public:
  enum class Event : std::uint8_t {
    start,
    stop,
    launch,
    download,
    background,
    answer,
    errorText,
    errorObject,
    update,
    end,
    quit
  };
  static constexpr const char* kNames[] = {"start",     "stop",        "launch", "download", "background", "answer",
                                           "errorText", "errorObject", "update", "end",      "quit"};
  static bool isHosts(Event event) { return event <= Event::download; }

  /// What one caller was told by an event.
  struct Told {
    int caller;
    bool finished;
    friend bool operator==(const Told&, const Told&) = default;
  };

  // What the host sees.
  int status = 1;
  bool isOpen = false;
  /// What the launcher heard and did not answer: 'h'ello, 'l'aunch, 'd'isconnect.
  std::string heard;
  /// Of the last event.
  std::vector<Told> told;

  std::size_t backgroundWork() const { return background_.size(); }
  /// Callers who still wait to be told something.
  std::size_t waiting() const {
    std::size_t count = launchFinish_ == kNobody ? 0 : 1;
    for (const Row& row : rows_) count += row.then == Then::nothing ? 0 : 1;
    for (const Work& work : background_) count += work.caller == kNobody ? 0 : 1;
    return count;
  }

  std::vector<Event> possible(std::size_t mostWaiting) const {
    std::vector<Event> events;
    if (waiting() < mostWaiting) events = {Event::start, Event::stop, Event::launch, Event::download};
    if (!background_.empty()) events.push_back(Event::background);
    if (isAlive_) events.push_back(Event::quit);
    if (!isOpen) return events;
    if (!heard.empty()) events.push_back(Event::answer);
    for (const Event one : {Event::errorText, Event::errorObject, Event::update, Event::end}) events.push_back(one);
    return events;
  }

  /// `caller`: the number of the call, for what the host asks.
  void happens(Event event, int caller) {
    told.clear();
    switch (event) {
      case Event::start:
        return start(Then::caller, caller);
      case Event::stop:
        return leave(Stage::stopping, Then::caller, caller);
      case Event::launch:
      case Event::download:
        return launch(caller, event == Event::download);
      case Event::background:
        return doWork();
      case Event::answer:
        return answer();
      case Event::errorText:
        return inStep(Fact::launcherRefused, [&] {
          sayGoodbye();
          tellError();
        });
      case Event::errorObject:
        return inStep(Fact::jobRefused, [&] {
          sayGoodbye();
          helloFinish_ = false;
          launchFinish_ = kNobody;
          if (launchError_ != kNobody) tell(std::exchange(launchError_, kNobody), false);
        });
      case Event::update:
        return disconnect(Goodbye::update, {});
      case Event::end:
        return breakDown();
      case Event::quit:
        isAlive_ = false;
        if (isOpen) return breakDown();
        // A greeting that was refused and stopped has left a status that no launcher will ever change.
        if (status == 2 && !isStarting()) setStatus(1);
        return;
    }
  }

  /// Callers whose launch is to be made again, with the launcher that has updated itself.
  std::vector<int> launchedAgain() const {
    std::vector<int> callers;
    for (const Work& work : background_) {
      if (work.caller != kNobody) callers.push_back(work.caller);
    }
    return callers;
  }

  /// Two of them with the same key go on alike: numbers and callers are named by their order. `known`: the callers that
  /// can still be told something, in that order.
  std::string key(std::vector<int>& known) const {
    std::string text;
    const auto put = [&](int value) { text += static_cast<char>('0' + value); };
    const auto putCaller = [&](int caller) {
      if (caller == kNobody) return put(0);
      auto found = std::find(known.begin(), known.end(), caller);
      if (found == known.end()) found = known.insert(known.end(), caller);
      put(1 + static_cast<int>(found - known.begin()));
    };
    for (const int value : {status, isOpen ? 1 : 0, isLeaving_ ? 1 : 0, helloFinish_ ? 1 : 0, helloError_ ? 1 : 0,
                            static_cast<int>(goodbyeFinish_), goodbyeErrorOfSession_ ? 1 : 0, hasLaunched_ ? 1 : 0,
                            isConnected_ ? 1 : 0, isAlive_ ? 1 : 0}) {
      put(value);
    }
    for (const int caller : {launchFinish_, launchError_, goodbyeError_, updateDone_}) putCaller(caller);
    put(updateIsDue() ? 1 : 0);
    text += heard + "|";
    for (const Row& row : rows_) {
      put(static_cast<int>(row.stage));
      put(static_cast<int>(row.then));
      put(row.launcher == 0 ? 0 : row.launcher == launcher_ ? 1 : 2);
      put(static_cast<int>(
          std::count_if(rows_.begin(), rows_.end(), [&](const Row& one) { return one.number < row.number; })));
      put(row.isDownload ? 1 : 0);
      putCaller(row.caller);
    }
    text += "|";
    for (const Work& work : background_) {
      put(work.isDownload ? 1 : 0);
      putCaller(work.caller);
    }
    return text;
  }

 private:
  static constexpr int kNobody = -1;

  enum class Stage : std::uint8_t { starting, greeting, crossing, stopping, replacing, working, worked };
  enum class Fate : std::uint8_t { waits, finish, fail, again, done, drop };
  enum class Fact : std::uint8_t {
    launcherFailed,
    helloAnswered,
    launchAnswered,
    goodbyeAnswered,
    channelFailed,
    launcherRefused,
    jobRefused,
    jobStopped,
    greetingStopped,
  };
  /// What follows for one who waits: it is told, or its launch goes on.
  enum class Then : std::uint8_t { nothing, caller, sendLaunch, tellFailure, launchNext };
  enum class Goodbye : std::uint8_t { none, session, update };

  struct Row {
    Stage stage;
    Then then;
    int caller;
    bool isDownload;
    int number;
    int launcher;
  };
  /// The start of a launcher, or the wait for one that has updated itself: that of a caller.
  struct Work {
    int launcher;
    int caller;
    bool isDownload;
  };

  static Fate fateOf(Fact fact, Stage stage) {
    using enum Fate;
    static constexpr Fate kFates[][7] = {
        // starting greeting crossing stopping replacing working worked
        {fail, waits, waits, waits, waits, waits, waits},     // launcher failed
        {waits, finish, finish, waits, waits, waits, waits},  // hello answered
        {waits, waits, waits, waits, waits, done, waits},     // launch answered
        {waits, fail, again, finish, finish, fail, drop},     // goodbye answered
        {waits, fail, fail, fail, fail, fail, drop},          // channel failed
        {waits, fail, fail, fail, fail, done, waits},         // launcher refused
        {waits, waits, waits, waits, waits, done, waits},     // job refused
        {waits, waits, waits, waits, fail, fail, drop},       // job stopped
        {waits, fail, fail, fail, fail, fail, drop},          // greeting stopped
    };
    return kFates[static_cast<int>(fact)][static_cast<int>(stage)];
  }

  void tell(int caller, bool finished) { told.push_back({caller, finished}); }
  void setStatus(int next) {
    status = next;
    if (next == 1) isConnected_ = isLeaving_ = false;
    if (next == 3) isConnected_ = std::exchange(hasLaunched_, false);
  }

  // Those who wait.

  int add(Stage stage, Then then, int caller, bool isDownload = false) {
    if (stage == Stage::working) std::erase_if(rows_, [](const Row& row) { return row.stage == Stage::worked; });
    rows_.push_back({stage, then, caller, isDownload, ++last_, stage == Stage::starting ? launcher_ : 0});
    return last_;
  }
  bool isWaiting(std::initializer_list<Stage> stages) const {
    return std::any_of(rows_.begin(), rows_.end(), [&](const Row& row) {
      return std::find(stages.begin(), stages.end(), row.stage) != stages.end();
    });
  }
  bool isStarting() const {
    return std::any_of(rows_.begin(), rows_.end(),
                       [](const Row& row) { return row.stage == Stage::starting && row.launcher != 0; });
  }
  int reachOf(Fact fact) const {
    int reach = 0;
    for (const Row& row : rows_) {
      if (row.stage == Stage::greeting) reach = std::max(reach, row.number);
    }
    return fact != Fact::helloAnswered || reach == 0 ? last_ : reach;
  }
  Stage greetingStage() const { return isLeaving_ ? Stage::crossing : Stage::greeting; }

  void settle(Fact fact, std::initializer_list<Stage> stages, int upTo, int launcher = 0) {
    std::vector<std::pair<Row, bool>> calls;
    std::vector<Row> staying;
    bool again = false;
    for (Row row : rows_) {
      const bool isConcerned =
          (stages.size() == 0 || std::find(stages.begin(), stages.end(), row.stage) != stages.end()) &&
          row.number <= upTo && (launcher == 0 || row.launcher == launcher);
      const Fate fate = isConcerned ? fateOf(fact, row.stage) : Fate::waits;
      if (fate == Fate::finish || fate == Fate::fail) calls.emplace_back(row, fate == Fate::finish);
      if (fate == Fate::done) row.stage = Stage::worked;
      if (fate == Fate::again) {
        row = {Stage::starting, row.then, row.caller, row.isDownload, ++last_, 0};
        again = true;
      }
      if (fate == Fate::waits || fate == Fate::done || fate == Fate::again) staying.push_back(row);
    }
    rows_ = std::move(staying);
    for (const auto& [row, finished] : calls) goOn(row.then, row.caller, row.isDownload, finished);
    if (again) startAgain();
  }
  void goOn(Then then, int caller, bool isDownload, bool finished) {
    switch (then) {
      case Then::nothing:
        return;
      case Then::caller:
        return tell(caller, finished);
      case Then::sendLaunch:
        return finished ? sendLaunch(caller, isDownload) : leave(Stage::stopping, Then::tellFailure, caller);
      case Then::tellFailure:
        return tell(caller, false);
      case Then::launchNext:
        return finished ? start(Then::sendLaunch, caller, isDownload) : tell(caller, false);
    }
  }

  template <class Work>
  void inStep(Fact fact, Work work) {
    const std::pair<Fact, int> step{fact, reachOf(fact)};
    const std::pair<Fact, int>* const outer = std::exchange(step_, &step);
    work();
    step_ = outer;
    settle(fact, {}, step.second);
  }

  // What the host asks.

  void start(Then then, int caller, bool isDownload = false) {
    if (status == 1) {
      joinLauncher(++launcher_);
      add(Stage::starting, then, caller, isDownload);
      return startLauncher(launcher_);
    }
    if (status != 3) return goOn(then, caller, isDownload, false);
    add(greetingStage(), then, caller, isDownload);
    greet();
  }
  void joinLauncher(int launcher) {
    for (Row& row : rows_) {
      if (row.stage == Stage::starting && row.launcher == 0) row.launcher = launcher;
    }
  }
  void startLauncher(int launcher) {
    isAlive_ = false;  // the end of the one before is nothing to this conversation
    setStatus(2);
    background_.push_back({launcher, kNobody, false});
  }
  void startAgain() {
    if (isStarting()) return joinLauncher(launcher_);
    if (status == 3) {
      for (Row& row : rows_) {
        if (row.stage != Stage::starting || row.launcher != 0) continue;
        row.stage = greetingStage();
        row.number = ++last_;
      }
      return greet();
    }
    joinLauncher(++launcher_);
    if (status != 1) return settle(Fact::launcherFailed, {}, last_, launcher_);
    startLauncher(launcher_);
  }
  void greet() {
    isOpen = true;
    helloFinish_ = helloError_ = isWaiting({Stage::greeting, Stage::crossing});
    heard += 'h';
  }

  void launch(int caller, bool isDownload) {
    if (status == 1 || status == 3) return start(Then::sendLaunch, caller, isDownload);
    if (status == 4 && !isDownload) return leave(Stage::replacing, Then::launchNext, caller);
    tell(caller, false);
  }
  void sendLaunch(int caller, bool isDownload) {
    if (isWaiting({Stage::working}) && status != 4) setStatus(4);
    if (status == 4) return launch(caller, isDownload);
    updateJob_ = add(Stage::working, Then::nothing, caller, isDownload);
    launchFinish_ = launchError_ = updateDone_ = caller;
    updateIsDownload_ = isDownload;
    setStatus(4);
    heard += 'l';
  }

  void leave(Stage stage, Then then, int caller) {
    if (status == 1) {
      isOpen = false;
      return goOn(then, caller, false, true);
    }
    if (status == 2) {
      isOpen = false;
      goOn(then, caller, false, false);
      return endGreeting();
    }
    if (status == 4) {
      inStep(Fact::jobStopped, [&] {
        add(stage, then, caller);
        tellError();
      });
    } else {
      add(stage, then, caller);
    }
    disconnect(Goodbye::session, {});
  }
  void endGreeting() {
    if (isStarting() || !isWaiting({Stage::greeting, Stage::crossing})) return;
    setStatus(1);
    inStep(Fact::greetingStopped, [&] { tellError(); });
  }
  void sayGoodbye() {
    isLeaving_ = true;
    if (isOpen) heard += 'd';
  }
  /// `of`: whose error callback goes along.
  void disconnect(Goodbye kind, std::vector<int> of) {
    const bool waits = isWaiting({Stage::stopping, Stage::replacing});
    goodbyeFinish_ = kind == Goodbye::session && !waits ? Goodbye::none : kind;
    goodbyeErrorOfSession_ = kind == Goodbye::session && waits;
    goodbyeError_ = of.empty() ? kNobody : of.front();
    sayGoodbye();
  }

  // What happens to the conversation.

  void answer() {
    const char message = heard.front();
    heard.erase(0, 1);
    if (message == 'h') {
      return inStep(Fact::helloAnswered, [&] {
        helloError_ = false;
        setStatus(3);
        if (std::exchange(helloFinish_, false)) {
          settle(Fact::helloAnswered, {Stage::greeting, Stage::crossing}, step_->second);
        }
      });
    }
    if (message == 'l') {
      return inStep(Fact::launchAnswered, [&] {
        if (launchFinish_ != kNobody) tell(std::exchange(launchFinish_, kNobody), true);
        const int error = std::exchange(launchError_, kNobody);
        disconnect(Goodbye::none, error == kNobody ? std::vector<int>() : std::vector<int>{error});
      });
    }
    heard.clear();  // the launcher is gone then
    answerGoodbye();
  }
  void answerGoodbye() {
    const int upTo = last_;
    inStep(Fact::goodbyeAnswered, [&] {
      isOpen = false;
      goodbyeError_ = kNobody;
      goodbyeErrorOfSession_ = false;
      const Goodbye finish = std::exchange(goodbyeFinish_, Goodbye::none);
      setStatus(1);
      if (finish == Goodbye::session) settle(Fact::goodbyeAnswered, {Stage::stopping, Stage::replacing}, step_->second);
      if (finish == Goodbye::update) relaunch();
      settle(Fact::goodbyeAnswered, {Stage::stopping, Stage::replacing}, upTo);
      if (isOpen) return;
      if (isWaiting({Stage::greeting}) || launchFinish_ != kNobody || launchError_ != kNobody) {
        tellError();
      } else {
        helloFinish_ = helloError_ = false;
      }
    });
  }
  bool updateIsDue() const {
    return updateDone_ != kNobody &&
           std::any_of(rows_.begin(), rows_.end(), [&](const Row& row) { return row.number == updateJob_; });
  }
  void relaunch() {
    const bool isDue = updateIsDue();
    const int caller = std::exchange(updateDone_, kNobody);
    if (!isDue) return;
    std::erase_if(rows_, [&](const Row& row) { return row.number == updateJob_; });
    launchFinish_ = launchError_ = kNobody;
    background_.push_back({0, caller, updateIsDownload_});
  }
  /// An error without a body that names the job concerns everybody.
  void tellError() {
    const std::pair<Fact, int> step = step_ != nullptr ? *step_ : std::pair(Fact::launcherRefused, last_);
    helloFinish_ = false;
    launchFinish_ = kNobody;
    const bool hello = std::exchange(helloError_, false);
    const int launch = std::exchange(launchError_, kNobody);
    const bool goodbye = std::exchange(goodbyeErrorOfSession_, false);
    const int launched = std::exchange(goodbyeError_, kNobody);
    if (hello) settle(step.first, {Stage::greeting, Stage::crossing}, step.second);
    if (launch != kNobody) tell(launch, false);
    if (goodbye) settle(step.first, {Stage::stopping, Stage::replacing}, step.second);
    if (launched != kNobody) tell(launched, false);
  }

  void breakDown() {
    inStep(Fact::channelFailed, [&] {
      setStatus(1);
      isOpen = false;
      tellError();
    });
  }

  void doWork() {
    const Work work = background_.front();
    background_.erase(background_.begin());
    if (work.caller != kNobody) return isConnected_ ? tell(work.caller, false) : launch(work.caller, work.isDownload);
    heard.clear();  // a new launcher has pipes of its own
    hasLaunched_ = isAlive_ = true;
    isLeaving_ = false;
    for (Row& row : rows_) {
      if (row.stage != Stage::starting || row.launcher != work.launcher) continue;
      row = {Stage::greeting, row.then, row.caller, row.isDownload, ++last_, 0};
    }
    greet();
  }

  bool isLeaving_ = false;
  bool helloFinish_ = false;
  bool helloError_ = false;
  Goodbye goodbyeFinish_ = Goodbye::none;
  bool goodbyeErrorOfSession_ = false;
  /// Of the job that was launched and whose error callback went over to the goodbye.
  int goodbyeError_ = kNobody;
  int launchFinish_ = kNobody;
  int launchError_ = kNobody;
  int updateDone_ = kNobody;
  int updateJob_ = 0;
  bool updateIsDownload_ = false;
  bool hasLaunched_ = false;
  bool isConnected_ = false;
  /// The process of the launcher that was started last.
  bool isAlive_ = false;
  std::vector<Row> rows_;
  int last_ = 0;
  int launcher_ = 0;
  std::vector<Work> background_;
  const std::pair<Fact, int>* step_ = nullptr;
};

}  // namespace tks::test

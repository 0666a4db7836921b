#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

#include <tksinterface/TKSCallbacks.h>
#include <tksinterface/TKSError.h>

#include "interface/HostCalls.h"

namespace tks::interface {

/// What a caller of the facade waits for.
enum class Stage : std::uint8_t {
  starting,   ///< a start whose launcher is being started
  greeting,   ///< a start that has greeted the launcher
  crossing,   ///< a start whose greeting was sent after our goodbye: the launcher will not answer it
  stopping,   ///< a stop that has said goodbye
  replacing,  ///< a launch that waits for the goodbye of the job whose place it takes
  working,    ///< a launch request that was sent; its callbacks stand in the conversation, because there is only one
  worked,     ///< a launch request that was answered; its launcher may still update itself and ask for it again
};
constexpr std::size_t kStages = 7;

/// A set of stages.
class Stages {
 public:
  constexpr Stages(std::initializer_list<Stage> stages) {
    for (const Stage one : stages) bits_ |= bit(one);
  }
  static constexpr Stages all() {
    return Stages{Stage::starting,  Stage::greeting, Stage::crossing, Stage::stopping,
                  Stage::replacing, Stage::working,  Stage::worked};
  }
  constexpr bool contains(Stage one) const { return (bits_ & bit(one)) != 0; }

 private:
  static constexpr unsigned bit(Stage one) { return 1U << static_cast<unsigned>(one); }
  unsigned bits_ = 0;
};

/// What can happen to those who wait.
enum class Event : std::uint8_t {
  launcherFailed,   ///< the launcher could not be started
  helloAnswered,    ///< "hello_ack"
  launchAnswered,   ///< "launch_meeting_ack"
  goodbyeAnswered,  ///< "disconnect_ack"
  channelFailed,    ///< the transport failed for good
  launcherRefused,  ///< "error" with a text: it concerns everybody
  jobRefused,       ///< "error" with an object: it concerns the job
  jobStopped,       ///< a stop or another launch takes the place of the job
  greetingStopped,  ///< a stop closed the channel before the greeting was answered
  dropped,          ///< a host that talks over files ends its conversation at once
  destroyed,        ///< the facade is gone
};
constexpr std::size_t kEvents = 11;

/// What becomes of one who waits.
enum class Fate : std::uint8_t {
  waits,   ///< goes on waiting
  finish,  ///< has got what it wanted
  fail,    ///< is told the error; nothing when it gave no error callback, and never its finish
  again,   ///< is made again with a new launcher
  done,    ///< a job that was answered
  drop,    ///< is forgotten, uncalled
};

/// The whole behaviour of a session.
Fate fateOf(Event event, Stage stage);

/// Those who wait for the launcher. A value: it calls nobody, logs nothing and knows no loop.
///
/// A number names a request in the order in which requests are sent, so that an answer reaches those who waited for it
/// and not those who were added by their callbacks.
class Session {
 public:
  /// Counts from 1; 0 is nobody's.
  using Number = std::uint64_t;

  struct Caller {
    /// Called when it has got what it wanted.
    HostCall finish;
    /// Told why it never will; empty when the caller does not listen.
    TKSErrorBlock error;
    /// Names the error callback in the line about what it throws.
    std::string_view errorName = "errorBlock";
  };
  /// Whom an event concerns: those at one of the stages with a number up to this one; starts of one launcher only, when
  /// it is named.
  struct Scope {
    /// The stages concerned.
    Stages stages = Stages::all();
    /// The last number concerned.
    Number upTo = ~Number{0};
    /// The launcher whose starts are concerned; 0: any.
    Number launcher = 0;
  };
  struct Settled {
    /// What has to be called now, in order of the requests; those callers are no longer in the session.
    std::vector<HostCall> calls;
    /// Somebody waits for a new launcher, without one being started: see `nameLauncher`.
    bool again = false;
  };

  /// Adds somebody who waits; a start's launcher is the one being started last. Returns the number.
  Number add(Stage stage, Caller caller);
  /// Something has happened: takes out those whom it settles.
  Settled on(Event event, const Scope& scope, const TKSError& error);

  /// A launcher is about to be started for those who wait for one, and for the next that is added. Returns its number.
  Number nameLauncher();
  /// Those who wait for a launcher that is not being started wait for the one that is.
  void joinLauncher();
  /// The launcher runs: whoever waited for it is greeting it from now on.
  void launcherRuns(Number launcher);
  /// Those whose greeting would have to be made again are greeting the launcher that is there.
  void greetAgain();
  /// Our goodbye was sent; until the end of the conversation nobody who greets is answered.
  void goodbyeSent() { leaving_ = true; }
  /// The conversation is over: the next greeting can be answered again.
  void conversationEnded() { leaving_ = false; }
  /// The stage of a greeting that is sent now.
  Stage greetingStage() const { return leaving_ ? Stage::crossing : Stage::greeting; }

  /// A launcher is being started for somebody.
  bool isStarting() const;
  /// Somebody waits at one of these stages.
  bool isWaiting(Stages stages) const;
  /// Somebody at one of these stages has a finish callback.
  bool listensForFinish(Stages stages) const;
  /// Somebody in this scope has an error callback.
  bool listensForErrors(const Scope& scope) const;
  /// Takes out one, uncalled; false when it is no longer there.
  bool forget(Number number);
  /// How far an event reaches of the requests sent so far: the answer to a hello belongs to those who were greeting
  /// before our goodbye, when there are any.
  Number reachOf(Event event) const;
  /// The number given last.
  Number last() const { return last_; }

 private:
  struct Row {
    Stage stage;
    /// Of its request.
    Number number;
    /// For Stage::starting: the launcher; 0 when none is being started for it.
    Number launcher;
    Caller caller;
  };
  static bool concerns(const Scope& scope, const Row& row);

  /// In the order of their numbers.
  std::vector<Row> rows_;
  Number last_ = 0;
  /// The launcher named last.
  Number launcher_ = 0;
  /// Our goodbye was sent in this conversation.
  bool leaving_ = false;
};

}  // namespace tks::interface

#include "interface/Session.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tks::interface {
namespace {

using enum Fate;

/// One row an event, in their order; one column a stage: starting, greeting, crossing, stopping, replacing, working,
/// worked.
constexpr std::array<std::array<Fate, kStages>, kEvents> kFates = {{
    /* launcherFailed  */ {fail, waits, waits, waits, waits, waits, waits},
    /* helloAnswered   */ {waits, finish, finish, waits, waits, waits, waits},
    /* launchAnswered  */ {waits, waits, waits, waits, waits, done, waits},
    /* goodbyeAnswered */ {waits, fail, again, finish, finish, fail, drop},
    /* channelFailed   */ {waits, fail, fail, fail, fail, fail, drop},
    /* launcherRefused */ {waits, fail, fail, fail, fail, done, waits},
    /* jobRefused      */ {waits, waits, waits, waits, waits, done, waits},
    /* jobStopped      */ {waits, waits, waits, waits, fail, fail, drop},
    /* greetingStopped */ {waits, fail, fail, fail, fail, fail, drop},
    /* dropped         */ {waits, drop, drop, drop, drop, drop, drop},
    /* destroyed       */ {drop, drop, drop, drop, drop, drop, drop},
}};

}  // namespace

Fate fateOf(Event event, Stage stage) {
  return kFates.at(static_cast<std::size_t>(event)).at(static_cast<std::size_t>(stage));
}

Session::Number Session::add(Stage stage, Caller caller) {
  // The job before is none of this conversation's any more.
  if (stage == Stage::working) std::erase_if(rows_, [](const Row& row) { return row.stage == Stage::worked; });
  rows_.push_back({stage, ++last_, stage == Stage::starting ? launcher_ : 0, std::move(caller)});
  return last_;
}

bool Session::concerns(const Scope& scope, const Row& row) {
  return scope.stages.contains(row.stage) && row.number <= scope.upTo &&
         (scope.launcher == 0 || row.launcher == scope.launcher);
}

Session::Settled Session::on(Event event, const Scope& scope, const TKSError& error) {
  Settled settled;
  std::vector<Row> gone;  // what they hold is destroyed last, when the session is in order
  std::vector<Row> staying;
  settled.calls.reserve(rows_.size());
  gone.reserve(rows_.size());
  staying.reserve(rows_.size());
  for (Row& row : rows_) {
    const Fate fate = concerns(scope, row) ? fateOf(event, row.stage) : waits;
    if (fate == finish && row.caller.finish.run) settled.calls.push_back(std::move(row.caller.finish));
    if (fate == fail && row.caller.error) {
      settled.calls.push_back({row.caller.errorName, [tell = std::move(row.caller.error), error] { tell(error); }});
    }
    if (fate == done) row.stage = Stage::worked;
    if (fate == again) {
      settled.again = true;
      row = {Stage::starting, ++last_, 0, std::move(row.caller)};
    }
    const bool stays = fate == waits || fate == done || fate == again;
    (stays ? staying : gone).push_back(std::move(row));
  }
  rows_ = std::move(staying);
  return settled;
}

Session::Number Session::nameLauncher() {
  ++launcher_;
  joinLauncher();
  return launcher_;
}

void Session::joinLauncher() {
  for (Row& row : rows_) {
    if (row.stage == Stage::starting && row.launcher == 0) row.launcher = launcher_;
  }
}

void Session::launcherRuns(Number launcher) {
  leaving_ = false;
  for (Row& row : rows_) {
    if (row.stage == Stage::starting && row.launcher == launcher) {
      row = {Stage::greeting, ++last_, 0, std::move(row.caller)};
    }
  }
}

void Session::greetAgain() {
  for (Row& row : rows_) {
    if (row.stage == Stage::starting && row.launcher == 0) {
      row = {greetingStage(), ++last_, 0, std::move(row.caller)};
    }
  }
}

bool Session::isStarting() const {
  return std::ranges::any_of(rows_, [](const Row& row) { return row.stage == Stage::starting && row.launcher != 0; });
}

bool Session::isWaiting(Stages stages) const {
  return std::ranges::any_of(rows_, [&](const Row& row) { return stages.contains(row.stage); });
}

bool Session::listensForFinish(Stages stages) const {
  return std::ranges::any_of(
      rows_, [&](const Row& row) { return stages.contains(row.stage) && static_cast<bool>(row.caller.finish.run); });
}

bool Session::listensForErrors(const Scope& scope) const {
  return std::ranges::any_of(
      rows_, [&](const Row& row) { return concerns(scope, row) && static_cast<bool>(row.caller.error); });
}

Session::Number Session::reachOf(Event event) const {
  if (event != Event::helloAnswered) return last_;
  Number reach = 0;
  for (const Row& row : rows_) {
    if (row.stage == Stage::greeting) reach = std::max(reach, row.number);
  }
  return reach == 0 ? last_ : reach;
}

bool Session::forget(Number number) {
  const auto found = std::ranges::find(rows_, number, &Row::number);
  if (found == rows_.end()) return false;
  rows_.erase(found);
  return true;
}

}  // namespace tks::interface

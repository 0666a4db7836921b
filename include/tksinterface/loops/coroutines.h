#pragma once

#include <tksinterface/TKSInterface.h>

#include <coroutine>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace tks {

/// Something that the facade does, to be awaited in a coroutine. The coroutine goes on where the library's callbacks
/// come: on the main thread. A coroutine may be destroyed while it waits; nothing resumes it then.
class Awaited {
 public:
  /// What is begun when the coroutine waits.
  using Begin = std::function<void(TKSFinishBlock finish, TKSErrorBlock error)>;

  /// Begins nothing yet.
  explicit Awaited(Begin begin) : begin_(std::move(begin)) {}
  ~Awaited() { state_->waiting = nullptr; }
  Awaited(const Awaited&) = delete;
  Awaited& operator=(const Awaited&) = delete;

  /// Never: the facade is asked first.
  bool await_ready() const noexcept { return false; }
  /// Begins. The coroutine may go on, and end, before this returns.
  void await_suspend(std::coroutine_handle<> waiting) {
    state_->waiting = waiting;
    const Begin begin = std::move(begin_);
    begin([state = state_] { goOn(*state, std::nullopt); },
          [state = state_](const TKSError& error) { goOn(*state, error); });
  }
  /// Nothing when it has been done, else the error.
  std::optional<TKSError> await_resume() { return std::move(state_->error); }

 private:
  struct State {
    std::coroutine_handle<> waiting;
    std::optional<TKSError> error;
  };

  // A launch's error callback may come again, after its end.
  static void goOn(State& state, std::optional<TKSError> error) {
    if (state.waiting == nullptr) return;
    state.error = std::move(error);
    std::exchange(state.waiting, nullptr).resume();
  }

  Begin begin_;
  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// const std::optional<TKSError> error = co_await tks::launch(parameters);
inline Awaited launch(TKSValue parameters) {
  return Awaited([parameters = std::move(parameters)](TKSFinishBlock finish, TKSErrorBlock error) {
    TKSInterface::sharedInstance().launchMeetingWithParam(parameters, std::move(finish), std::move(error));
  });
}

/// co_await tks::start(): the launcher is started and greeted.
inline Awaited start() {
  return Awaited([](TKSFinishBlock finish, TKSErrorBlock error) {
    TKSInterface::sharedInstance().start(std::move(finish), std::move(error));
  });
}

/// co_await tks::stop(): the launcher is told goodbye.
inline Awaited stop() {
  return Awaited([](TKSFinishBlock finish, TKSErrorBlock error) {
    TKSInterface::sharedInstance().stop(std::move(finish), std::move(error));
  });
}

}  // namespace tks

#include "interface/Facade.h"

#include <utility>

#include "foundation/Errors.h"
#include "interface/SilentLaunchers.h"
#include "messaging/FatalErrors.h"

namespace tks::interface {

void Facade::close() {
  SilentLaunchers::shared().giveUp(manager().launchedTKSPid);
  {
    const std::scoped_lock lock(mutex_);
    owner_ = nullptr;
  }
  calls_.end();
  conversation_.end();
  endTimer_.reset();
  settle(Event::destroyed, {}, {});
}

void Facade::keepForThisTurn(std::unique_ptr<TKSIAppManager> manager, std::unique_ptr<TKSIMessageHandler> handler) {
  kept_ = {std::move(manager), std::move(handler)};
  kept_.handler->cleanupConnectStatus4FileIPC();  // whatever it talks over: nobody is called any more
  platform::mainLoop().post([self = shared_from_this()] { const Kept last = std::exchange(self->kept_, {}); });
}

void Facade::setStatus(std::int32_t status) {
  if (status == TKSI_APP_STATUS_UNCONNECTED) {
    conversation_.end();
    session_.conversationEnded();
  }
  const std::int32_t silent = manager().launchedTKSPid;
  if (status == TKSI_APP_STATUS_CONNECTED) SilentLaunchers::shared().forget(silent);
  manager().handleStatusChange(status);
  if (status == TKSI_APP_STATUS_UNCONNECTED) SilentLaunchers::shared().giveUp(silent);
}

// Settling those who wait.

void Facade::settle(Event event, const Session::Scope& scope, const TKSError& error) {
  Session::Settled settled = session_.on(event, scope, error);
  if (settled.again) settled.calls.push_back({"start again", later([](Facade& self) { self.startAgain(); })});
  tell(std::move(settled.calls));
}

void Facade::refuse(const TKSErrorBlock& block, TKSError error) {
  if (!block) return;
  tell({{"errorBlock", [block, error = std::move(error)] { block(error); }}});
}

/// What the conversation is to call for everybody at these stages; empty when nobody listens, as for a single caller.
TKSFinishBlock Facade::finishOf(Stages stages) {
  if (!session_.listensForFinish(stages)) return nullptr;
  return later([stages](Facade& self) {
    if (self.step_ != nullptr) self.settle(self.step_->event, {.stages = stages, .upTo = self.step_->upTo}, {});
  });
}

TKSErrorBlock Facade::errorOf(Stages stages) {
  if (!session_.listensForErrors({.stages = stages})) return nullptr;
  return later([stages](Facade& self, const TKSError& error) {
    // Somebody else than the launcher may report an error to the conversation: that concerns everybody.
    const CurrentStep step =
        self.step_ != nullptr ? *self.step_ : CurrentStep{Event::launcherRefused, self.session_.last()};
    self.settle(step.event, {.stages = stages, .upTo = step.upTo}, error);
  });
}

// Steps of the conversation.

void Facade::step(Event event, const TKSError& error, const std::function<void()>& action,
                  const std::function<bool()>& counts) {
  const CurrentStep step{event, session_.reachOf(event)};
  const CurrentStep* const outer = std::exchange(step_, &step);
  action();
  step_ = outer;
  if (!isGone() && (!counts || counts())) settle(event, {.upTo = step.upTo}, error);
}

void Facade::channelFailed(const std::string& description, const std::function<void()>& action) {
  const Epoch::Moment before = conversation_.now();
  step(Event::channelFailed, defaultError(messaging::reasonOfFatalError(description), description), action,
       [&] { return before.isOver(); });
}

/// Whoever wanted to stop has got what he wanted. What was asked of the launcher and not answered until then never will
/// be: a greeting that crossed our own goodbye is made again with a new launcher, everything else has failed.
void Facade::goodbyeAnswered(const std::function<void()>& action) {
  constexpr std::string_view kUnanswered = "TKS disconnected before it answered.";
  const TKSError unanswered = defaultError(TKSErrorReason::notAnswered, kUnanswered);
  const Session::Number upTo = session_.last();
  const auto failUnanswered = [&] {
    action();
    if (isGone()) return;
    settle(Event::goodbyeAnswered, {.stages = {Stage::stopping, Stage::replacing}, .upTo = upTo}, unanswered);
    if (isGone() || handler().messageHost->isOpened) return;
    if (session_.isWaiting({Stage::greeting}) || handler().launchFinishBlock || handler().launchErrorBlock) {
      handler().handleError(unanswered);
    } else {
      handler().helloFinishBlock = nullptr;
      handler().helloErrorBlock = nullptr;
    }
  };
  step(Event::goodbyeAnswered, unanswered, failUnanswered);
}

void Facade::drop() {
  calls_.end();
  settle(Event::dropped, {}, {});
}

}  // namespace tks::interface

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tksinterface/TKSIAppManager.h>
#include <tksinterface/TKSIMessageHandler.h>
#include <tksinterface/TKSInterface.h>

#include "foundation/values/Epoch.h"
#include "interface/Session.h"
#include "platform/platform.h"

namespace tks::interface {

/// What stands behind TKSInterface. Work that runs later or elsewhere, and every callback that is handed on, holds the
/// Facade instead of the TKSInterface; whoever may have been interrupted by the host's code looks at `isGone` before it
/// goes on. Main thread only, but for what says otherwise.
class Facade : public std::enable_shared_from_this<Facade> {
 public:
  explicit Facade(TKSInterface& owner) : owner_(&owner) {}
  /// The TKSInterface is being destroyed: nobody is called any more.
  void close();
  /// After `close`, in a log callback: keeps what steps that are under way still use until the main loop's next turn.
  void keepForThisTurn(std::unique_ptr<TKSIAppManager> manager, std::unique_ptr<TKSIMessageHandler> handler);

  /// Does an operation here and now on the main thread, and there, in the order of the calls, from any other thread.
  template <class Operation>
  void door(Operation operation) {
    const std::shared_ptr<Facade> self = shared_from_this();
    if (platform::mainLoop().isMainThread()) return operation(*self);
    platform::mainLoop().post([self, operation = std::move(operation)]() mutable {
      if (!self->isGone()) operation(*self);
    });
  }

  TKSInterface& owner() { return *owner_; }
  TKSIAppManager& manager() { return isGone() ? *kept_.manager : *owner_->appManager; }

  // The operations of TKSInterface, on the main thread.
  void start(TKSFinishBlock finish, TKSErrorBlock error);
  void stop(TKSFinishBlock finish, TKSErrorBlock error);
  void launch(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error);
  void launchInternally(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error);
  void relaunch(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error);
  void cleanUpFileChannel();

  // What the conversation tells (see FacadeHandler).

  /// Lets the conversation take a step. Its callbacks settle those who wait for them at their place in the step;
  /// afterwards the others are settled. `counts` says whether the step has come to what the event says.
  void step(Event event, const TKSError& error, const std::function<void()>& action,
            const std::function<bool()>& counts = nullptr);
  void goodbyeAnswered(const std::function<void()>& action);
  void channelFailed(const std::string& description, const std::function<void()>& action);
  void goodbyeSent() { session_.goodbyeSent(); }
  void drop();

 private:
  /// What a TKSInterface leaves that is destroyed in a log callback.
  struct Kept {
    std::unique_ptr<TKSIAppManager> manager;
    std::unique_ptr<TKSIMessageHandler> handler;
  };
  /// The step that the conversation is taking.
  struct CurrentStep {
    /// What it means to those who wait.
    Event event;
    /// The last request that it concerns.
    Session::Number upTo;
  };

  bool isGone() const { return owner_ == nullptr; }
  TKSIMessageHandler& handler() { return isGone() ? *kept_.handler : *owner_->messageHandler; }
  bool isProcessing() { return status() == TKSI_APP_STATUS_LAUNCHING; }
  std::int32_t status() { return manager().TKSAppStatus; }
  void setStatus(std::int32_t status);

  /// The only way to the host's code; the last thing that a step does.
  void settle(Event event, const Session::Scope& scope, const TKSError& error);
  void tell(std::vector<HostCall> calls) { makeCalls(std::move(calls), calls_.now()); }
  void refuse(const TKSErrorBlock& block, TKSError error);
  TKSFinishBlock finishOf(Stages stages);
  TKSErrorBlock errorOf(Stages stages);
  /// Work for later, which is not done once the TKSInterface is gone.
  template <class Work>
  auto later(Work work) {
    return [weak = weak_from_this(), work = std::move(work)](const auto&... arguments) {
      if (const std::shared_ptr<Facade> self = weak.lock(); self && !self->isGone()) work(*self, arguments...);
    };
  }

  // Starting.
  void beginStart();
  void installStatusBlocks();
  void launchAndConnect(Session::Number launcher);
  std::optional<std::vector<std::string>> prepareChannel(TKSError& error);
  void onLaunchResult(Session::Number launcher, const std::string& exePath,
                      const std::optional<TKSRunningApplication>& application, const std::optional<TKSError>& reason);
  void connect(Session::Number launcher, const TKSRunningApplication& application);
  void reportFailedLaunch(Session::Number launcher, const std::string& exePath, const TKSError& reason);
  void onLauncherEnd(const Epoch::Moment& launcher, const std::string& end);
  void greet();
  void startAgain();

  // Stopping.
  void leave(Stage stage, HostCall finish, TKSErrorBlock error);
  void disconnect();
  void refuseToStop(std::int32_t status, const TKSErrorBlock& error);
  void endGreeting();

  // Launching.
  void launchOverRunningJob(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error);
  void sendLaunch(const TKSValue& param, const TKSFinishBlock& finish, const TKSErrorBlock& error);
  void launchAgain(const TKSValue& param, const std::optional<TKSRunningApplication>& stillRunning,
                   TKSFinishBlock finish, TKSErrorBlock error);

  // Off the main thread:
  std::int32_t connectedPid();
  void forgetConnectedPid(std::int32_t pid);
  std::optional<TKSRunningApplication> waitForOldLauncher();

  /// Held while `owner_` is used off the main thread, and while it is cleared.
  std::mutex mutex_;
  /// Null once the TKSInterface is destroyed.
  TKSInterface* owner_;
  Kept kept_;

  Session session_;
  /// Null between steps.
  const CurrentStep* step_ = nullptr;
  /// Ends when those who wait are dropped: what was due to them is no longer.
  Epoch calls_;
  /// Ends with each conversation.
  Epoch conversation_;
  /// Ends with each request to the launcher.
  Epoch request_;
  /// Ends with each launcher that is started.
  Epoch launcher_;
  /// Runs from the end of the launcher's process until its last words were read.
  std::unique_ptr<platform::MainLoop::Timer> endTimer_;
};

}  // namespace tks::interface

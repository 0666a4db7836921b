#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <tksinterface/TKSIAppManager.h>
#include <tksinterface/TKSIMessageHandler.h>
#include <tksinterface/TKSInterface.h>

#include "interface/WaitingCalls.h"
#include "platform/main_loop.h"

/// What the facade keeps beside its public properties. Work that runs later or elsewhere holds it instead of the
/// facade, and finds the facade through it for as long as there is one.
struct TKSInterface::State : std::enable_shared_from_this<TKSInterface::State> {
  /// Held while `facade` is used off the main thread, and while it is cleared.
  std::mutex mutex;
  /// Null once the facade is destroyed.
  TKSInterface* facade = nullptr;

  tks::interface::WaitingCalls greetings;
  tks::interface::WaitingCalls disconnects;
  /// What the last disconnect is to call. The conversation's own copy gives way to what it does by itself, when its
  /// answer to the launcher crosses a stop.
  TKSFinishBlock disconnected;
  /// Counts the launch requests that were sent, and those that were given up: names the one that is under way.
  std::uint64_t job = 0;
  /// A greeting was sent after the request to disconnect: the launcher will not answer it, and it is made again.
  bool greetAgain = false;

  /// A launcher is being started in the background: its result decides what becomes of the status.
  bool launcherIsStarting = false;
  /// Launchers started so far: the last one is the one that the conversation is with.
  std::uint64_t launches = 0;
  std::unique_ptr<tks::platform::MainLoop::Timer> endTimer;
  void onLauncherEnd(std::uint64_t launch, const std::string& end);

  /// Off the main thread:
  std::int32_t connectedPid();
  void forgetConnectedPid(std::int32_t pid);
  std::optional<TKSRunningApplication> waitForOldLauncher();
};

#pragma once

#include <mutex>

#include <tksinterface/TKSIAppManager.h>
#include <tksinterface/TKSIMessageHandler.h>
#include <tksinterface/TKSInterface.h>

#include "interface/WaitingCalls.h"

/// What the facade keeps beside its public properties. Work that runs later or elsewhere holds it instead of the
/// facade, and finds the facade through it for as long as there is one.
struct TKSInterface::State {
  /// Held while `facade` is used off the main thread, and while it is cleared.
  std::mutex mutex;
  /// Null once the facade is destroyed.
  TKSInterface* facade = nullptr;

  tks::interface::WaitingCalls greetings;
  tks::interface::WaitingCalls disconnects;
  /// A greeting was sent after the request to disconnect: the launcher will not answer it, and it is made again.
  bool greetAgain = false;

  /// Off the main thread:
  std::int32_t connectedPid();
  void forgetConnectedPid(std::int32_t pid);
  std::optional<TKSRunningApplication> waitForOldLauncher();
};

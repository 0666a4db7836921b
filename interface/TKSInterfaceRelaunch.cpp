#include <chrono>
#include <utility>

#include <tksinterface/TKSUtilBase.h>

#include "foundation/Logging.h"
#include "interface/TKSInterfaceState.h"
#include "platform/platform.h"

// Launching again after the launcher has updated itself.

using tks::formatted;

namespace {

constexpr int kLooks = 51;
constexpr std::chrono::milliseconds kBetweenLooks{100};

}  // namespace

void TKSInterface::relaunchTKSWhenUpdateDone(const TKSValue& param, TKSFinishBlock launchFinishBlock,
                                             TKSErrorBlock launchErrorBlock) {
  if (isElsewhere()) {
    return doOnMainThread([=, this] { relaunchTKSWhenUpdateDone(param, launchFinishBlock, launchErrorBlock); });
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "%s",
                        "-[TKSInterface relaunchTKSWhenUpdateDone:launchFinishBlock:launchErrorBlock:]");
  // What the host handed in goes back to the main thread whole: not even a destructor of it runs anywhere else.
  auto wait = [state = state_, param = param, finish = std::move(launchFinishBlock),
               error = launchErrorBlock]() mutable {
    std::optional<TKSRunningApplication> stillRunning = state->waitForOldLauncher();
    tks::platform::mainLoop().post([state, param = std::move(param), stillRunning = std::move(stillRunning),
                                    finish = std::move(finish), error = std::move(error)] {
      if (state->facade != nullptr) state->facade->launchAgain(param, stillRunning, finish, error);
    });
  };
  if (tks::platform::backgroundWork().submit(std::move(wait))) return;
  const std::string message = "No thread to wait on for TKS app to quit.";
  TKSILog::logWithLevel(TKSILogLevelWarning, "%@", message);
  tks::callHost("errorBlock", launchErrorBlock, TKSUtilBase::generateTKSInterfaceDefaultError(message));
}

std::int32_t TKSInterface::State::connectedPid() {
  const std::scoped_lock lock(mutex);
  return facade == nullptr ? 0 : facade->connectedTKSAppPid();
}

void TKSInterface::State::forgetConnectedPid(std::int32_t pid) {
  const std::scoped_lock lock(mutex);
  if (facade != nullptr) facade->appManager->connectedTKSPid.compare_exchange_strong(pid, 0);
}

/// Looks for the old launcher until it has quit or the time is over; the application found last. Off the main thread.
std::optional<TKSRunningApplication> TKSInterface::State::waitForOldLauncher() {
  std::int32_t pid = connectedPid();
  TKSILog::logWithLevel(TKSILogLevelInfo, "Background check if TKS app quited (TKS pid: %i) (thread id: %@)", pid,
                        tks::platform::thisProcess().threadDescription());
  std::optional<TKSRunningApplication> found;
  for (int looks = 0; pid >= 1 && looks < kLooks; ++looks, pid = connectedPid()) {
    found = tks::platform::runningApplications().find(pid);
    if (!found) {
      TKSILog::logWithLevel(TKSILogLevelInfo, "App quited. Ready to launch again.");
      forgetConnectedPid(pid);
    } else {
      TKSILog::logWithLevel(TKSILogLevelInfo, "Still running... check after 100ms");
      tks::platform::clock().sleep(kBetweenLooks);
    }
  }
  return found;
}

void TKSInterface::launchAgain(const TKSValue& param, const std::optional<TKSRunningApplication>& stillRunning,
                               TKSFinishBlock launchFinishBlock, TKSErrorBlock launchErrorBlock) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Checking done, back to main thread: %@",
                        tks::platform::thisProcess().threadDescription());
  if (connectedTKSAppPid() == 0) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Launch again.");
    launchMeetingWithParam(param, std::move(launchFinishBlock), std::move(launchErrorBlock));
    return;
  }
  const std::string message = TKSILog::removeSensitiveInformation(formatted(
      "TKS app failed to quit, checking timeout. Path: %@", stillRunning ? stillRunning->bundlePath.c_str() : nullptr));
  TKSILog::logWithLevel(TKSILogLevelWarning, "%@", message);
  tks::callHost("errorBlock", launchErrorBlock, TKSUtilBase::generateTKSInterfaceDefaultError(message));
}

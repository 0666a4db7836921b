#include <chrono>
#include <utility>

#include "foundation/Errors.h"
#include "foundation/logging/Logging.h"
#include "interface/Facade.h"
#include "platform/platform.h"

// Launching again after the launcher has updated itself.

namespace tks::interface {
namespace {

constexpr int kLooks = 51;
constexpr std::chrono::milliseconds kBetweenLooks{100};

}  // namespace

void Facade::relaunch(const TKSValue& param, TKSFinishBlock finish, TKSErrorBlock error) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "%s",
                        "-[TKSInterface relaunchTKSWhenUpdateDone:launchFinishBlock:launchErrorBlock:]");
  // What the host handed in goes back to the main thread whole: not even a destructor of it runs anywhere else.
  auto wait = [self = shared_from_this(), param = param, finish = std::move(finish), error]() mutable {
    std::optional<TKSRunningApplication> stillRunning = self->waitForOldLauncher();
    platform::mainLoop().post([self, param = std::move(param), stillRunning = std::move(stillRunning),
                               finish = std::move(finish), error = std::move(error)] {
      if (!self->isGone()) self->launchAgain(param, stillRunning, finish, error);
    });
  };
  if (platform::backgroundWork().submit(std::move(wait))) return;
  const std::string message = "No thread to wait on for TKS app to quit.";
  TKSILog::logWithLevel(TKSILogLevelWarning, "%@", message);
  refuse(error, defaultError(TKSErrorReason::outOfResources, message));
}

std::int32_t Facade::connectedPid() {
  const std::scoped_lock lock(mutex_);
  return isGone() ? 0 : manager().connectedTKSPid.load();
}

void Facade::forgetConnectedPid(std::int32_t pid) {
  const std::scoped_lock lock(mutex_);
  if (!isGone()) manager().connectedTKSPid.compare_exchange_strong(pid, 0);
}

/// Looks for the old launcher until it has quit or the time is over; the application found last. Off the main thread.
std::optional<TKSRunningApplication> Facade::waitForOldLauncher() {
  std::int32_t pid = connectedPid();
  TKSILog::logWithLevel(TKSILogLevelInfo, "Background check if TKS app quited (TKS pid: %i) (thread id: %@)", pid,
                        platform::thisProcess().threadDescription());
  std::optional<TKSRunningApplication> found;
  for (int looks = 0; pid >= 1 && looks < kLooks; ++looks, pid = connectedPid()) {
    found = platform::runningApplications().find(pid);
    if (!found) {
      TKSILog::logWithLevel(TKSILogLevelInfo, "App quited. Ready to launch again.");
      forgetConnectedPid(pid);
    } else {
      TKSILog::logWithLevel(TKSILogLevelInfo, "Still running... check after 100ms");
      platform::clock().sleep(kBetweenLooks);
    }
  }
  return found;
}

void Facade::launchAgain(const TKSValue& param, const std::optional<TKSRunningApplication>& stillRunning,
                         TKSFinishBlock finish, TKSErrorBlock error) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Checking done, back to main thread: %@",
                        platform::thisProcess().threadDescription());
  if (manager().connectedTKSPid == 0) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Launch again.");
    launch(param, std::move(finish), std::move(error));
    return;
  }
  const std::string message = TKSILog::removeSensitiveInformation(formatted(
      "TKS app failed to quit, checking timeout. Path: %@", stillRunning ? stillRunning->bundlePath.c_str() : nullptr));
  TKSILog::logWithLevel(TKSILogLevelWarning, "%@", message);
  refuse(error, defaultError(TKSErrorReason::notAnswered, message));
}

}  // namespace tks::interface

#include <chrono>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "platform/platform.h"

namespace {

constexpr std::chrono::milliseconds kEndInterval{50};
constexpr int kMostAttempts = 100;
constexpr std::string_view kMeetingClientName = "Kovra64 (";

using tks::masked;

bool isLaunchModule(const TKSRunningApplication& application) {
  return application.bundleIdentifier == TKSAppBundleID || application.localizedName.starts_with(kMeetingClientName);
}

/// Whether the same process is still listed; a later one with its identifier does not count.
bool isRunning(const TKSRunningApplication& application) {
  const std::optional<TKSRunningApplication> found =
      tks::platform::runningApplications().find(application.processIdentifier);
  return found && (application.startTime == 0 || found->startTime == application.startTime);
}

/// Where nothing can be looked up nothing is found, which does not mean that it is gone.
bool canSeeApplications() {
  TKSError error;
  if (tks::platform::runningApplications().canLookUp(&error)) return true;
  TKSILog::logWithLevel(TKSILogLevelError, "Running apps can not be looked up: %@", masked(error));
  return false;
}

}  // namespace

bool TKSUtilBase::endLaunchModules() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Check and end launch modules begin");
  bool allEnded = canSeeApplications();
  for (const TKSRunningApplication& application : tks::platform::runningApplications().list()) {
    if (!isLaunchModule(application)) continue;
    const std::string_view identifier = application.bundleIdentifier;
    TKSILog::logWithLevel(TKSILogLevelWarning, "End process: %s, bid: %@", application.localizedName,
                          identifier.empty() ? "(null)" : identifier);
    if (forceTerminateApp(application)) continue;
    TKSILog::logWithLevel(TKSILogLevelError, "End process failed: %s", application.localizedName);
    allEnded = false;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Check and end launch modules end: %i", allEnded);
  return allEnded;
}

bool TKSUtilBase::forceTerminateApp(const std::optional<TKSRunningApplication>& application) {
  if (!application) {
    TKSILog::logWithLevel(TKSILogLevelError, "App nil, no way to terminate it.");
    return false;
  }
  const std::string description = application->description();
  TKSILog::logWithLevel(TKSILogLevelInfo, "Begin to force terminate app (%@)", masked(description));
  // One that ended by itself refuses as well, and is what was asked for.
  const bool accepted = tks::platform::runningApplications().forceTerminate(*application);
  if ((!accepted && isRunning(*application)) || !canSeeApplications()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Force terminate app failed (%@)", masked(description));
    return false;
  }
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    if (!isRunning(*application)) {
      TKSILog::logWithLevel(TKSILogLevelInfo, "Force terminate success: (%@)", masked(description));
      return true;
    }
    TKSILog::logWithLevel(TKSILogLevelInfo, "Wait a while for app terminate... %d", attempt);
    tks::platform::clock().sleep(kEndInterval);
  }
  TKSILog::logWithLevel(TKSILogLevelError, "Force terminate app failed (%@)", masked(description));
  return false;
}

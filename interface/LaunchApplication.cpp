#include <algorithm>
#include <chrono>
#include <string>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Options.h"
#include "foundation/logging/Logging.h"
#include "install/Trust.h"
#include "interface/LaunchArguments.h"
#include "platform/platform.h"

// Starting an application bundle through the workspace.

namespace {

constexpr std::chrono::milliseconds kRetryInterval{100};
constexpr int kMostRetries = 10;

using tks::masked;

/// What an error slot holds: an error, or nothing.
std::string slotText(const TKSError* error) {
  return error == nullptr || *error == TKSError() ? "(null)" : error->description();
}

/// What comes before a bundle is launched; false when it may not be.
bool prepare(const std::string& path, TKSError* error) {
  if (path.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "No path param, fail to launch.");
    TKSUtilBase::removeQuarantineAttribute(path);
    return false;
  }
  const bool removesMarkLast = tks::options().quarantineUntilChecked;
  if (!removesMarkLast) TKSUtilBase::removeQuarantineAttribute(path);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Check app begin.");
  const bool trusted = tks::checkTrustForStart(path, error);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Check app done, result: %i, path: %@", trusted, masked(path));
  if (trusted && removesMarkLast) TKSUtilBase::removeQuarantineAttribute(path);
  return trusted;
}

/// Launches again until it works or was tried often enough; returns the number of retries.
int retry(const std::string& path, const std::vector<std::string>& args, TKSError* error,
          std::optional<TKSRunningApplication>& application) {
  int retries = 0;
  while (!application && retries < kMostRetries) {
    tks::platform::clock().sleep(kRetryInterval);
    application = tks::platform::runningApplications().launch(path, args, error);
    ++retries;
    if (error == nullptr) continue;
    const std::string reason = slotText(error);
    TKSILog::logWithLevel(TKSILogLevelWarning, "The %d retry failed: %@", retries, masked(reason));
  }
  if (application && retries > 0 && error != nullptr) *error = TKSError();
  return retries;
}

}  // namespace

std::optional<TKSRunningApplication> TKSUtilBase::launchApp(std::string_view appPath,
                                                            const std::vector<std::string>& args, TKSError* error) {
  tks::settleOptions();
  const std::string path(appPath);
  if (!prepare(path, error)) {
    const std::string reason = slotText(error);
    TKSILog::logWithLevel(TKSILogLevelError, "Launch APP failed, %@", masked(reason));
    return std::nullopt;
  }
  std::optional<TKSRunningApplication> application = tks::platform::runningApplications().launch(path, args, error);
  const int retries = tks::scanLaunchArguments(args).warmUp ? 0 : retry(path, args, error, application);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Launch APP result: [pid: %d, path: %@, retryCount: %d]",
                        application ? application->processIdentifier : 0, masked(path), retries);
  return application;
}

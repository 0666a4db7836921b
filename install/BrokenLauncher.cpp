#include "install/BrokenLauncher.h"

#include <string>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Options.h"
#include "foundation/logging/Logging.h"
#include "install/AcceptedVersion.h"
#include "install/ReplaceBundle.h"
#include "install/Trust.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

bool isRecentEnough(const std::string& kept, const std::string& target, TKSError* error) {
  if (!options().refuseDowngrades) return true;
  const TKSValue version = TKSUtilBase::getBundleVersion(kept);
  return isNotOlderThanAccepted(target, version.isNothing() ? "" : version.description(), error);
}

bool putBack(std::string_view launcherPath) {
  const std::string target(launcherPath);
  const std::string kept = previousBundleOf(target);
  if (!platform::files().isDirectory(kept)) return false;
  TKSError error;
  if (!checkTrustForInstalling(kept, &error) || !isRecentEnough(kept, target, &error) ||
      !putPreviousBack(target, &error)) {
    TKSILog::logWithLevel(TKSILogLevelError, "The previous launcher is not put back: %@, error: %@", masked(kept),
                          masked(error));
    return false;
  }
  if (TKSUtilBase::isBrokenApp(target)) return false;
  TKSILog::logWithLevel(TKSILogLevelWarning, "Launcher broken, the previous one was put back: %@", masked(target));
  return true;
}

}  // namespace

bool keepOrPutBack(std::string_view launcherPath) {
  if (options().keepBrokenLauncher) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Launcher broken, but broken ones are kept: %@", masked(launcherPath));
    return true;
  }
  return options().keepPreviousLauncher && putBack(launcherPath);
}

}  // namespace tks::install

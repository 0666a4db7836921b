#include "install/LauncherIdentity.h"

#include <optional>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>

#include "foundation/FilePaths.h"
#include "foundation/Logging.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

constexpr std::string_view kExtension = ".app";
constexpr std::string_view kIdentifier = "CFBundleIdentifier";

bool isNamedLikeAnApplication(std::string_view path) { return lastPathComponent(path).ends_with(kExtension); }

}  // namespace

bool isLauncher(std::string_view path) {
  if (!isNamedLikeAnApplication(path) || !platform::files().isDirectory(path)) return false;
  if (lastPathComponent(path) == TKSAppName) return true;
  const std::optional<platform::Bundle> bundle = platform::bundles().open(path);
  return bundle && bundle->infoDictionary[kIdentifier].text() == TKSAppBundleID;
}

bool mayBeCleanedUp(std::string_view path) {
  if (path.empty() || isLauncher(path)) return true;
  // A clean-up ends whatever runs below a path, so that one of a missing folder is not harmless either.
  if (isNamedLikeAnApplication(path) && !platform::files().exists(path)) return true;
  TKSILog::logWithLevel(TKSILogLevelError, "Not removed: %@ is no launcher.", masked(path));
  return false;
}

}  // namespace tks::install

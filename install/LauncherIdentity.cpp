#include "install/LauncherIdentity.h"

#include <optional>
#include <string>
#include <vector>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/FilePaths.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

constexpr std::string_view kExtension = ".app";
constexpr std::string_view kIdentifier = "CFBundleIdentifier";

bool isNamedLikeAnApplication(std::string_view path) { return lastPathComponent(path).ends_with(kExtension); }

/// The identifier that a bundle names; empty when it names none.
std::string identifierOf(std::string_view path) {
  const std::optional<platform::Bundle> bundle = platform::bundles().open(path);
  return bundle ? std::string(bundle->infoDictionary[kIdentifier].text()) : std::string();
}

}  // namespace

bool isLauncher(std::string_view path) {
  if (!isNamedLikeAnApplication(path) || !platform::files().isDirectory(path)) return false;
  if (lastPathComponent(path) == TKSAppName) return true;
  return identifierOf(path) == TKSAppBundleID;
}

bool mayBeCleanedUp(std::string_view path) {
  if (path.empty() || isLauncher(path)) return true;
  // A clean-up ends whatever runs below a path, so that one of a missing folder is not harmless either.
  if (isNamedLikeAnApplication(path) && !platform::files().exists(path)) return true;
  TKSILog::logWithLevel(TKSILogLevelError, "Not removed: %@ is no launcher.", masked(path));
  return false;
}

bool mayBeReplaced(std::string_view path) {
  platform::Files& files = platform::files();
  if (!files.exists(path) || isLauncher(path)) return true;
  if (!files.isDirectory(path)) return lastPathComponent(path) == TKSAppName;
  const std::optional<std::vector<std::string>> names = files.list(path, nullptr);
  return (names && names->empty()) || (isNamedLikeAnApplication(path) && identifierOf(path).empty());
}

}  // namespace tks::install

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/HeldLines.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/FilePaths.h"
#include "platform/platform.h"

// What the installed launcher needs to be started: execute permission for itself and its app extensions; and which
// architectures it was built for.

namespace {

using tks::platform::Bundle;

constexpr std::uint32_t kOwnerMayExecute = 0100;

bool needsPermission(const std::string& executable) { return !tks::platform::files().isExecutableFile(executable); }

/// An executable that its bundle does not have is an absent text.
std::string_view shown(const std::string& path) { return path.empty() ? std::string_view("(null)") : path; }

bool allowExecuting(const std::string& path) {
  const std::string_view name = shown(path);
  TKSError error;
  const std::optional<std::uint32_t> permissions = tks::platform::files().permissions(path, &error);
  if (!permissions) {
    TKSILog::logWithLevel(TKSILogLevelError, "Failed to get attributes of %@", tks::masked(name));
    return false;
  }
  if (tks::platform::files().setPermissions(path, *permissions | kOwnerMayExecute, &error)) return true;
  TKSILog::logWithLevel(TKSILogLevelError, "Failed to set execute attributes to %@, error: %@", tks::masked(path),
                        tks::masked(error));
  return false;
}

void checkExtensions(const Bundle& launcher) {
  for (const std::string& name :
       tks::platform::files().list(launcher.builtInPlugInsPath, nullptr).value_or(std::vector<std::string>())) {
    if (!name.ends_with(".appex")) continue;
    const std::optional<Bundle> extension =
        tks::platform::bundles().open(tks::joinedPath(launcher.builtInPlugInsPath, name));
    if (!extension || extension->executablePath.empty() || !needsPermission(extension->executablePath)) continue;
    const bool allowed = allowExecuting(extension->executablePath);
    TKSILog::logWithLevel(TKSILogLevelInfo, "Add app ext exe permission done: %@, result: %i(expect 1).",
                          tks::masked(extension->executablePath), allowed);
  }
}

}  // namespace

void TKSUtilBase::checkLaunchService() {
  TKSILog::logWithLevel(TKSILogLevelInfo, "Check launch service begin");
  const std::string path = getStandardTKSPath();
  if (const std::optional<Bundle> launcher = tks::platform::bundles().open(path)) {
    if (needsPermission(launcher->executablePath)) {
      const bool allowed = allowExecuting(launcher->executablePath);
      const std::string_view name = shown(launcher->executablePath);
      TKSILog::logWithLevel(TKSILogLevelInfo, "Add exe permission done: %@, result: %i(expect 1).", tks::masked(name),
                            allowed);
    }
    checkExtensions(*launcher);
    TKSILog::logWithLevel(TKSILogLevelInfo, "Prepare for app ext done.");
  } else {
    TKSILog::logWithLevel(TKSILogLevelError, "Fail to prepare for app ext with path: %@", tks::masked(path));
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Check launch service end");
}

std::optional<std::string> TKSUtilBase::getTKSBuildArchitecture() {
  const tks::HeldLines lines;
  // Kept for the life of the process, also when the launcher is replaced meanwhile.
  static const std::optional<std::string> architecture =
      getValueInInfoPlist(getStandardTKSPath(), TKSPlistKeyBuildArchitectures).optionalText();
  return architecture;
}

bool TKSUtilBase::isArmArchitecturalApp(std::string_view) {
  const std::string architectures = tks::platform::text().lowerCase(getTKSBuildArchitecture().value_or(""));
  return architectures.find("arm64") != std::string::npos;
}

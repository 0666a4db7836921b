#include <string>

#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "platform/platform.h"

namespace {

constexpr std::string_view kQuarantine = "com.apple.quarantine";
constexpr std::uint32_t kReadWriteExecute = 0755;

using tks::masked;

}  // namespace

void TKSUtilBase::removeQuarantineAttribute(std::string_view appPath) {
  if (appPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Nil/empty appPath! Fail to get quarantine property of %@.",
                          masked(appPath));
    return;
  }
  TKSError error;
  const std::optional<tks::platform::FileAttributes> attributes = tks::platform::files().attributes(appPath, &error);
  if (!attributes && error == TKSError()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Empty file attributes! Fail to get quarantine property of %@.",
                          masked(appPath));
    return;
  }
  if (!attributes) {
    const std::string reason = error.description();
    TKSILog::logWithLevel(TKSILogLevelError, "Fail to get quarantine property of %@. Error: %@.", masked(appPath),
                          masked(reason));
    return;
  }
  if (!attributes->extendedAttributes.contains(kQuarantine)) return;
  const int result = tks::platform::files().removeExtendedAttribute(appPath, kQuarantine);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Remove com.apple.quarantine attr done, result: %d. AppPath: %@.", result,
                        masked(appPath));
}

void TKSUtilBase::addReadAndWritePermissionToFile(std::string_view filePath) {
  if (filePath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "In addReadAndWritePermissionToFile, filePath is nil");
    return;
  }
  // Read and set of the same item: what a link leads to, never the link's own.
  const std::optional<std::uint32_t> present = tks::platform::files().permissions(filePath, nullptr);
  TKSError error;
  if (tks::platform::files().setPermissions(filePath, present.value_or(0) | kReadWriteExecute, &error)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Add Read and Write permission to path: %@ success", masked(filePath));
    return;
  }
  const std::string reason = error.description();
  TKSILog::logWithLevel(TKSILogLevelError, "Add Read and Write permission to path: %@ failed, error: %@",
                        masked(filePath), masked(reason));
}

#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/IntegerValue.h"
#include "install/PackageVersions.h"
#include "install/Trust.h"
#include "platform/platform.h"

// Whether an unpacked package may be installed: who signed it, and whether it is the version that it is said to be.

namespace {

bool refuse(TKSErrorReason reason, std::string message, TKSError* error) {
  if (error != nullptr) *error = tks::makeError(reason, TKSUtilErrorDomain, 0, std::move(message));
  return false;
}

}  // namespace

bool TKSUtilBase::isSafeToInstall(std::string_view packagePath, std::string_view tellingVersion, TKSError* error) {
  if (!tks::platform::files().exists(packagePath)) {
    return refuse(TKSErrorReason::notFound, tks::formatted("Package not exist: %@", packagePath), error);
  }
  const bool isFolder = tks::platform::files().isDirectory(packagePath);
  if (!tks::checkTrustForInstalling(packagePath, error)) return false;
  if (!isFolder && packagePath.ends_with(".dylib")) return true;
  const TKSValue found = getBundleVersion(packagePath);
  const std::string packageVersion = tks::install::comparableVersion(found.isNothing() ? "" : found.description());
  if (packageVersion.empty()) {
    return refuse(TKSErrorReason::broken, tks::formatted("Fail to extract version with path: %@", packagePath), error);
  }
  const std::string expected = tks::install::comparableVersion(tellingVersion);
  if (packageVersion == expected) return true;
  return refuse(TKSErrorReason::wrongVersion,
                tks::formatted("Version not match, package version: %@, telling version: %@", packageVersion, expected),
                error);
}

bool TKSUtilBase::isSupportedTKSVersion(std::string_view version) {
  const std::string_view main = version.substr(0, version.find('.'));
  if (main.empty()) {
    TKSILog::logWithLevel(TKSILogLevelError, "Version string format incorrect: %@", version);
    return false;
  }
  if (tks::integerValue(main) >= TKSMinSupportedMainVersion) return true;
  TKSILog::logWithLevel(TKSILogLevelError, "Unsupported TKS version: %@", version);
  return false;
}

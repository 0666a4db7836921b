#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "platform/bundles.h"
#include "platform/files.h"
#include "platform/known_folders.h"
#include "platform/platform.h"

// The well-known folders and files. Each is its parent and one name.

using tks::joinedPath;

namespace {

constexpr std::uint32_t kPrivateFolder = 0700;

}  // namespace

std::string TKSUtilBase::getRealHomeDirectory() { return tks::platform::knownFolders().realHome(); }

std::string TKSUtilBase::getUserLibraryDirectory() { return joinedPath(getRealHomeDirectory(), "Library"); }

std::string TKSUtilBase::getUserPreferenceDirectory() { return joinedPath(getUserLibraryDirectory(), "Preferences"); }

std::string TKSUtilBase::getApplicationSupportDirectory() {
  return joinedPath(getUserLibraryDirectory(), "Application Support");
}

std::string TKSUtilBase::getUserLogsDirectory() { return joinedPath(getUserLibraryDirectory(), "Logs"); }

std::string TKSUtilBase::getKovraFolderPath() {
  return joinedPath(getApplicationSupportDirectory(), TKSKovraFolderName);
}

std::string TKSUtilBase::getStandardTKSPath() {
  return joinedPath(joinedPath(getKovraFolderPath(), TKSAddOnFolderName), TKSAppName);
}

std::string TKSUtilBase::getKovraDataPath() {
  return joinedPath(getApplicationSupportDirectory(), TKSKovraMeetingsFolderName);
}

std::string TKSUtilBase::getKovraAppDataPath() { return joinedPath(getKovraDataPath(), TKSAppDataSubFolderName); }

std::string TKSUtilBase::getClientVersionsPlistPath() { return joinedPath(getKovraAppDataPath(), TKSPlistFileName); }

std::string TKSUtilBase::getCommonDataPlistPath() {
  return joinedPath(getKovraAppDataPath(), TKSAppDataCommonDataPlistName);
}

std::string TKSUtilBase::getFeatureDataPlistPath() {
  return joinedPath(getKovraAppDataPath(), TKSFeatureDataPlistFileName);
}

std::string TKSUtilBase::getKovraReportsPath() { return joinedPath(getKovraDataPath(), TKSReportsSubFolderName); }

std::string TKSUtilBase::getKovraIniCachePath() { return joinedPath(getKovraDataPath(), TKSIniCacheSubFolderName); }

std::string TKSUtilBase::getKovraParamsPathForFM() { return joinedPath(getKovraDataPath(), TKSParamsSubFolderName); }

std::string TKSUtilBase::getKovraDownloadsPath() { return joinedPath(getKovraDataPath(), TKSDownloadsSubFolderName); }

std::string TKSUtilBase::getKovraLogsPath() { return joinedPath(getUserLogsDirectory(), TKSKovraMeetingsFolderName); }

std::string TKSUtilBase::getTempFolderPath() {
  std::string path = tks::platform::knownFolders().temporary();
  const std::optional<std::string> identifier = tks::platform::bundles().mainBundleIdentifier();
  if (!path.empty() && identifier && !identifier->empty()) path = joinedPath(path, *identifier);
  TKSError error =
      tks::makeError(TKSErrorReason::noSafeFolder, TKSUtilErrorDomain, 0, "no temporary folder can be trusted");
  const bool isThere = !path.empty() && (tks::platform::files().exists(path) ||
                                         tks::platform::files().createDirectory(path, kPrivateFolder, &error));
  if (!isThere) {
    const std::string reason = error.description();
    TKSILog::logWithLevel(TKSILogLevelError, "Create temp folder failed: %@", tks::masked(reason));
  }
  return path;
}

#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/Logging.h"
#include "platform/bundles.h"
#include "platform/files.h"
#include "platform/known_folders.h"
#include "platform/platform.h"

// The well-known folders and files. Each is its parent and one name.

namespace {

constexpr std::uint32_t kPrivateFolder = 0700;

std::string inside(std::string folder, std::string_view name) {
  if (!folder.ends_with('/')) folder += '/';
  return folder.append(name);
}

}  // namespace

std::string TKSUtilBase::getRealHomeDirectory() { return tks::platform::knownFolders().realHome(); }

std::string TKSUtilBase::getUserLibraryDirectory() { return inside(getRealHomeDirectory(), "Library"); }

std::string TKSUtilBase::getUserPreferenceDirectory() { return inside(getUserLibraryDirectory(), "Preferences"); }

std::string TKSUtilBase::getApplicationSupportDirectory() {
  return inside(getUserLibraryDirectory(), "Application Support");
}

std::string TKSUtilBase::getUserLogsDirectory() { return inside(getUserLibraryDirectory(), "Logs"); }

std::string TKSUtilBase::getKovraFolderPath() { return inside(getApplicationSupportDirectory(), TKSKovraFolderName); }

std::string TKSUtilBase::getStandardTKSPath() {
  return inside(inside(getKovraFolderPath(), TKSAddOnFolderName), TKSAppName);
}

std::string TKSUtilBase::getKovraDataPath() {
  return inside(getApplicationSupportDirectory(), TKSKovraMeetingsFolderName);
}

std::string TKSUtilBase::getKovraAppDataPath() { return inside(getKovraDataPath(), TKSAppDataSubFolderName); }

std::string TKSUtilBase::getClientVersionsPlistPath() { return inside(getKovraAppDataPath(), TKSPlistFileName); }

std::string TKSUtilBase::getCommonDataPlistPath() {
  return inside(getKovraAppDataPath(), TKSAppDataCommonDataPlistName);
}

std::string TKSUtilBase::getFeatureDataPlistPath() {
  return inside(getKovraAppDataPath(), TKSFeatureDataPlistFileName);
}

std::string TKSUtilBase::getKovraReportsPath() { return inside(getKovraDataPath(), TKSReportsSubFolderName); }

std::string TKSUtilBase::getKovraIniCachePath() { return inside(getKovraDataPath(), TKSIniCacheSubFolderName); }

std::string TKSUtilBase::getKovraParamsPathForFM() { return inside(getKovraDataPath(), TKSParamsSubFolderName); }

std::string TKSUtilBase::getKovraDownloadsPath() { return inside(getKovraDataPath(), TKSDownloadsSubFolderName); }

std::string TKSUtilBase::getKovraLogsPath() { return inside(getUserLogsDirectory(), TKSKovraMeetingsFolderName); }

std::string TKSUtilBase::getTempFolderPath() {
  std::string path = tks::platform::knownFolders().temporary();
  const std::optional<std::string> identifier = tks::platform::bundles().mainBundleIdentifier();
  if (!path.empty() && identifier && !identifier->empty()) path = inside(std::move(path), *identifier);
  TKSError error{std::string(TKSUtilErrorDomain), 0, "no temporary folder can be trusted"};
  const bool isThere = !path.empty() && (tks::platform::files().exists(path) ||
                                         tks::platform::files().createDirectory(path, kPrivateFolder, &error));
  if (!isThere) {
    const std::string reason = error.description();
    TKSILog::logWithLevel(TKSILogLevelError, "Create temp folder failed: %@", tks::masked(reason));
  }
  return path;
}

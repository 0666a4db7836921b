#include <tksinterface/TKSIAppManager.h>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/Characters.h"
#include "foundation/values/FilePaths.h"
#include "platform/platform.h"

using tks::joinedPath;
using tks::masked;

namespace {

constexpr std::string_view kBundleVersionKey = "CFBundleVersion";

/// The version in a bundle's information; empty when it is missing. One that was written as a number counts as its
/// text.
std::string versionIn(const TKSDictionary& information) {
  const TKSValue& version = information[kBundleVersionKey];
  return version.isText() || version.isNumber() ? version.description() : std::string();
}

}  // namespace

TKSIAppManager::TKSIAppManager() : TKSAppPath(TKSUtilBase::getStandardTKSPath()) {
  if (TKSAppPath.empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Get TKS app path failed.");
    TKSILog::logWithLevel(TKSILogLevelWarning, "TKS app path nil or empty, get exe path failed.");
    return;
  }
  TKSExePath = joinedPath(TKSAppPath, "Contents/MacOS/Tarvo Kovra Start");
}

// Refreshing the installed launcher.

bool TKSIAppManager::updateDefaultTKS() { return updateDefaultTKS(backupTKSVersion, backupTKSZipPath); }

bool TKSIAppManager::updateDefaultTKS(std::string_view backupVersion, const std::optional<std::string>& backupZipPath) {
  TKSILog::logWithLevel(TKSILogLevelInfo, "%s", "-[TKSIAppManager updateDefaultTKS:backupZipPath:]");
  const std::string_view version = tks::trimmed(backupVersion);
  if (version.empty() || !backupZipPath) {
    const std::string zipPath = backupZipPath.value_or("(null)");
    TKSILog::logWithLevel(TKSILogLevelError,
                          "Param incorrect when check default TKS version: backupVersion: %@, zipPath: %@",
                          backupVersion, masked(zipPath));
    return false;
  }
  if (!tks::platform::files().exists(*backupZipPath)) {
    TKSILog::logWithLevel(TKSILogLevelError, "Zip path not exists: %@", masked(*backupZipPath));
    return false;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Backup TKS version: %@", version);
  if (!isBackupVersionNewer(version)) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Backup version not newer. Use default version directly.");
    return true;
  }
  TKSILog::logWithLevel(TKSILogLevelWarning, "Backup version newer. Go to copy and replace with backup TKS.");
  return TKSUtilBase::installTKSVersion(version, *backupZipPath, TKSAppPath);
}

bool TKSIAppManager::isBackupVersionNewer(std::string_view backupVersion) {
  return isBackupVersionNewer(backupVersion, TKSAppPath);
}

bool TKSIAppManager::isBackupVersionNewer(std::string_view backupVersion, std::string_view defaultAppPath) {
  const std::string installed = getBundleVersion(defaultAppPath).value_or("");
  if (installed.empty()) {
    TKSILog::logWithLevel(TKSILogLevelInfo, "Default TKS bundle not exists with path: %@", masked(defaultAppPath));
    return true;
  }
  TKSILog::logWithLevel(TKSILogLevelInfo, "Default TKS version: %@", installed);
  return TKSUtilBase::isNewerVersion(backupVersion, installed);
}

std::optional<std::string> TKSIAppManager::getBundleVersion(std::string_view bundlePath) {
  std::optional<tks::platform::Bundle> bundle;
  if (tks::platform::files().exists(bundlePath)) bundle = tks::platform::bundles().open(bundlePath);
  if (!bundle) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Bundle not exists with path: %@", masked(bundlePath));
    return std::nullopt;
  }
  // From the file first: what a bundle object knows may be from before the bundle was replaced.
  std::string version;
  const std::string informationPath = joinedPath(bundlePath, "Contents/Info.plist");
  if (tks::platform::files().exists(informationPath)) {
    version =
        versionIn(tks::platform::propertyLists().readDictionary(informationPath, nullptr).value_or(TKSDictionary()));
  }
  if (version.empty()) version = versionIn(bundle->infoDictionary);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Bundle version: %@", version.empty() ? nullptr : version.c_str());
  return version.empty() ? std::nullopt : std::optional(version);
}

// Status.

void TKSIAppManager::handleStatusChange(std::int32_t status) {
  TKSAppStatus = status;
  switch (status) {
    case TKSI_APP_STATUS_UNCONNECTED:
      TKSILog::logWithLevel(TKSILogLevelInfo, "Switch TKS app status to: UNCONNECTED");
      connectedTKSPid = 0;
      break;
    case TKSI_APP_STATUS_STARTING:
      TKSILog::logWithLevel(TKSILogLevelInfo, "Switch TKS app status to: STARTING");
      break;
    case TKSI_APP_STATUS_CONNECTED: {
      TKSILog::logWithLevel(TKSILogLevelInfo, "Switch TKS app status to: CONNECTED");
      // A connected launcher that answers another hello loses its identifier here. Required behaviour: do not fix.
      const std::int32_t pid = launchedTKSPid.exchange(0);
      connectedTKSPid = pid;
      TKSILog::logWithLevel(TKSILogLevelInfo, "Connected to TKS with pid: %i", pid);
      break;
    }
    case TKSI_APP_STATUS_LAUNCHING:
      TKSILog::logWithLevel(TKSILogLevelInfo, "Switch TKS app status to: LAUNCHING");
      break;
    default:
      break;
  }
}

// Recorded sites.

std::optional<TKSDictionary> TKSIAppManager::getRecordedSites() {
  return getRecordedSites(TKSUtilBase::getClientVersionsPlistPath());
}

std::optional<TKSDictionary> TKSIAppManager::getRecordedSites(std::string_view plistPath) {
  const TKSDictionary list =
      tks::platform::propertyLists().readDictionary(plistPath, nullptr).value_or(TKSDictionary());
  if (list.empty()) {
    TKSILog::logWithLevel(TKSILogLevelWarning, "Fail to get plist dict with path: %@, %s", masked(plistPath),
                          "-[TKSIAppManager getRecordedSites:]");
    return std::nullopt;
  }
  TKSDictionary sites;
  const TKSDictionary versions = list[TKSPlistKeyVersions].dictionary();
  for (const auto& [version, records] : versions) {
    if (!records.isArray()) {
      TKSILog::logWithLevel(TKSILogLevelWarning, "Not an array: %@, %s", masked(records),
                            "-[TKSIAppManager getRecordedSites:]_block_invoke");
      continue;
    }
    TKSILog::logWithLevel(TKSILogLevelInfo, "Collect for version key: %@", version);
    collectSitesFrom(records.array(), sites);
  }
  return sites.empty() ? std::nullopt : std::optional(sites);
}

void TKSIAppManager::collectSitesFrom(const TKSArray& records, TKSDictionary& dict) {
  constexpr std::string_view kStep = "-[TKSIAppManager collectSitesFrom:toDict:]_block_invoke";
  for (const TKSValue& record : records) {
    if (!record.isDictionary()) {
      TKSILog::logWithLevel(TKSILogLevelWarning, "Not a dictionary: %@, %s", masked(record), kStep);
      continue;
    }
    const std::string_view domain = record[TKSPlistKeySiteDomain].text();
    if (domain.empty()) {
      TKSILog::logWithLevel(TKSILogLevelInfo, "No site domain, %s", kStep);
      continue;
    }
    TKSValue time = record[TKSPlistKeyLastLaunchTime];
    if (!time.isNumber()) {
      time = 0.0;
      TKSILog::logWithLevel(TKSILogLevelInfo, "No last launch time for site: %@, use default value 0.0, %s",
                            masked(domain), kStep);
    }
    const TKSValue* known = dict.find(domain);
    if (known == nullptr || known->real() < time.real()) dict.set(domain, time);
  }
}

#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSCallbacks.h>
#include <tksinterface/TKSExport.h>
#include <tksinterface/TKSValue.h>

/// What the facade knows of the launcher: where its bundle and executable lie, which backup archive the host offered,
/// and which process was started and connected. Main thread only, but the status and the process identifiers may be
/// read from any thread.
class TKS_EXPORT TKSIAppManager {
 public:
  /// `init` Pids 0, status unconnected, paths of the standard launcher.
  TKSIAppManager();

  /// Process started last by this library and not yet connected; 0 when none.
  std::atomic<std::int32_t> launchedTKSPid = 0;
  /// Process that answered hello; 0 when none.
  std::atomic<std::int32_t> connectedTKSPid = 0;
  /// A TKSIAppStatus; any other value is kept as it is.
  std::atomic<std::int32_t> TKSAppStatus = TKSI_APP_STATUS_UNCONNECTED;
  /// Stored for the host; not read by this library.
  std::string backupTKSAppPath;
  /// Path of the host's backup archive of the launcher, if it offered one.
  std::optional<std::string> backupTKSZipPath;
  /// Version of the launcher in that archive.
  std::string backupTKSVersion;
  /// Path of the launcher bundle.
  std::string TKSAppPath;
  /// Path of the launcher's executable.
  std::string TKSExePath;

  /// `updateDefaultTKS` Refreshes the launcher from the backup archive when that is newer; false when it failed.
  bool updateDefaultTKS();
  /// `updateDefaultTKS:backupZipPath:` The same with a given version and archive. Nothing as zip path is an error, an
  /// empty one is looked for on disk.
  bool updateDefaultTKS(std::string_view backupVersion, const std::optional<std::string>& backupZipPath);

  /// `isBackupVersionNewer:` Whether the version is newer than the launcher at TKSAppPath.
  bool isBackupVersionNewer(std::string_view backupVersion);
  /// `isBackupVersionNewer:defaultAppPath:` Whether the version is newer than the bundle at a path. A missing or
  /// unreadable bundle is always older.
  bool isBackupVersionNewer(std::string_view backupVersion, std::string_view defaultAppPath);

  /// `getBundleVersion:` CFBundleVersion of a bundle on disk, or nothing.
  std::optional<std::string> getBundleVersion(std::string_view bundlePath);

  /// `handleStatusChange:` Stores a status and moves the process identifiers: connected takes over the launched one,
  /// unconnected clears the connected one.
  void handleStatusChange(std::int32_t status);

  /// `getRecordedSites` Site domain to time of the last launch, from the standard file; nothing when there is none.
  std::optional<TKSDictionary> getRecordedSites();
  /// `getRecordedSites:` The same from a given property list.
  std::optional<TKSDictionary> getRecordedSites(std::string_view plistPath);
  /// `collectSitesFrom:toDict:` Adds site records to a result; of one domain the latest time stays.
  void collectSitesFrom(const TKSArray& records, TKSDictionary& dict);
};

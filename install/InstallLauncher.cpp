#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/LimitedTools.h"
#include "foundation/Options.h"
#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "foundation/values/OutOfMemory.h"
#include "install/AcceptedVersion.h"
#include "install/BrokenLauncher.h"
#include "install/LauncherIdentity.h"
#include "install/PackageVersions.h"
#include "install/PlaceLock.h"
#include "install/Progress.h"
#include "install/ReplaceBundle.h"
#include "install/Trust.h"
#include "install/UnpackFolder.h"
#include "platform/platform.h"

// Installing the launcher from a backup archive: unpack, prove, replace, check.

namespace {

using tks::masked;
using tks::platform::FileLock;
using tks::platform::files;
using tks::platform::Reach;

constexpr std::uint32_t kOrdinaryFolder = 0777;
/// How long one installation in the background waits for others of the same user.
constexpr std::chrono::minutes kPatience{10};

class Installation {
 public:
  /// `placeLock` is taken on the way and kept until the caller has looked at the result.
  Installation(std::string_view version, std::string_view zipPath, std::string_view targetPath,
               tks::install::Patience& patience, std::unique_ptr<FileLock>& placeLock)
      : givenVersion_(version),
        version_(tks::install::givenVersion(version)),
        zipPath_(zipPath),
        targetPath_(targetPath),
        patience_(patience),
        placeLock_(placeLock) {}

  /// Everything from the archive to the launcher in its place.
  bool run() {
    return checkParameters() && checkPlaces() && enterUnpackFolder() && unpackFolder_.makeRoom() && unpack() &&
           TKSUtilBase::isSupportedTKSVersion(version_) && checkDowngrade() && checkPackage() && endOldLauncher() &&
           makeParent() && lockPlace() && replace();
  }

  void cleanUp() { unpackFolder_.removeLauncher(); }

 private:
  bool checkParameters() const {
    if (version_.empty() || zipPath_.empty() || targetPath_.empty()) {
      TKSILog::logWithLevel(
          TKSILogLevelError,
          "Param incorrect when check default TKS version: backupVersion: %@, zipPath: %@, targetPath:%@.",
          givenVersion_, masked(zipPath_), masked(targetPath_));
      return false;
    }
    if (files().exists(zipPath_)) return true;
    TKSILog::logWithLevel(TKSILogLevelError, "Zip path not exists: %@", masked(zipPath_));
    return false;
  }

  /// What the options ask of the archive and of the launcher's place.
  bool checkPlaces() const {
    TKSError error;
    if (!tks::isNotShared(zipPath_, Reach::content, &error)) return refuse(zipPath_, error);
    return tks::isNotShared(targetPath_, Reach::way, &error) || refuse(targetPath_, error);
  }

  bool checkDowngrade() const {
    TKSError error;
    if (!tks::options().refuseDowngrades) return true;
    return tks::install::isNotOlderThanAccepted(targetPath_, version_, &error) || refusePackage(error);
  }

  bool enterUnpackFolder() {
    TKSError error;
    if (unpackFolder_.enter(patience_, &error)) return true;
    TKSILog::logWithLevel(TKSILogLevelError, "Cannot use the folder to unpack to: %@", masked(error));
    return false;
  }

  bool unpack() {
    TKSError error;
    if (unpackFolder_.unpack(zipPath_, &error)) return true;
    return error == TKSError() ? false : refusePackage(error);
  }

  bool checkPackage() const {
    tks::install::tellProgress(TKSInstallStep::checking);
    TKSError error;
    return TKSUtilBase::isSafeToInstall(unpackFolder_.launcherPath(), version_, &error) || refusePackage(error);
  }

  bool refusePackage(const TKSError& error) const { return refuse(unpackFolder_.launcherPath(), error); }

  static bool refuse(const std::string& path, const TKSError& error) {
    TKSILog::logWithLevel(TKSILogLevelError, "Unsafe to install '%@': %@", masked(path), masked(error));
    return false;
  }

  bool endOldLauncher() const {
    tks::install::tellProgress(TKSInstallStep::ending);
    if (!files().exists(targetPath_)) return true;
    if (!tks::install::mayBeReplaced(targetPath_)) return refuseToReplace();
    if (TKSUtilBase::endLaunchModules() && files().isWritable(targetPath_)) return true;
    TKSILog::logWithLevel(TKSILogLevelError, "Can not remove old app bundle: %@, no privilege, or end process failed.",
                          masked(targetPath_));
    return false;
  }

  /// A wrong path must not cost what lies there.
  bool refuseToReplace() const {
    const TKSError error = tks::makeError(TKSErrorReason::invalidArgument, TKSUtilErrorDomain, 0,
                                          tks::formatted("Not removed: %@ is no launcher.", targetPath_));
    TKSILog::logWithLevel(TKSILogLevelError, "Clean up TKS failed: %@", masked(error));
    return false;
  }

  bool makeParent() const {
    const std::string_view parent = tks::folderOf(targetPath_);
    if (parent.empty() || files().exists(parent)) return true;
    TKSError error;
    const bool made = files().createDirectory(parent, kOrdinaryFolder, &error);
    TKSILog::logWithLevel(TKSILogLevelInfo, "Add-ons folder not exists, create folder: %@, result: %i, any error: (%@)",
                          masked(parent), made, masked(error));
    return made;
  }

  bool lockPlace() {
    TKSError error;
    placeLock_ = tks::install::lockPlace(targetPath_, patience_, &error);
    // Where nobody can put anything there is nobody to wait for, and the move says what is wrong.
    if (placeLock_ || !tks::install::isUsablePlace(targetPath_)) return true;
    TKSILog::logWithLevel(TKSILogLevelError, "Cannot wait for other installations: %@", masked(error));
    return false;
  }

  bool replace() const {
    tks::install::tellProgress(TKSInstallStep::replacing);
    TKSError error;
    tks::install::BundleReplacement replacement(targetPath_);
    const bool staged = replacement.stage(unpackFolder_.launcherPath(), &error);
    // What was checked before may have been away at that time, or have changed since: this is what goes in.
    const bool proven = staged && TKSUtilBase::isSafeToInstall(replacement.stagedPath(), version_, &error);
    // A launcher in a read-only folder stays: report that, not the new one's failure.
    const bool stays = files().exists(targetPath_) && (proven || !files().isWritable(tks::folderOf(targetPath_)));
    const bool installed = proven && replacement.putInPlace(&error);
    if (!installed && stays) {
      TKSILog::logWithLevel(TKSILogLevelError, "Clean up TKS failed: %@", masked(error));
      return false;
    }
    TKSILog::logWithLevel(TKSILogLevelInfo, "Install TKS done, result: %i, any error: (%@)", installed, masked(error));
    if (!installed) return false;
    if (tks::options().keepPreviousLauncher) replacement.keepOld();
    TKSILog::logWithLevel(TKSILogLevelInfo, "File replacement done. Begin register work for appext");
    TKSUtilBase::checkLaunchService();
    if (!tks::options().quarantineUntilChecked) TKSUtilBase::removeQuarantineAttribute(targetPath_);
    return true;
  }

  std::string givenVersion_;
  std::string version_;
  std::string zipPath_;
  std::string targetPath_;
  tks::install::UnpackFolder unpackFolder_;
  tks::install::Patience& patience_;
  std::unique_ptr<FileLock>& placeLock_;
};

bool install(std::string_view version, std::string_view zipPath, std::string_view targetPath,
             tks::install::Patience& patience, std::unique_ptr<FileLock>& placeLock) {
  tks::settleOptions();
  Installation installation(version, zipPath, targetPath, patience, placeLock);
  const bool installed = tks::unlessOutOfMemory([&] { return installation.run(); });
  installation.cleanUp();
  return installed;
}

/// Removes a launcher that turned out broken; one that was updating itself is ended. Anything else stays.
void removeBrokenLauncher(std::string_view targetPath) {
  if (!tks::install::mayBeCleanedUp(targetPath) || tks::install::keepOrPutBack(targetPath)) return;
  TKSILog::logWithLevel(TKSILogLevelError, "TKS broken after installation, about to clean up");
  TKSUtilBase::cleanUpFolderPath(targetPath, true);
  if (tks::platform::bundles().mainBundleIdentifier() != TKSAppBundleID) return;
  TKSILog::logWithLevel(TKSILogLevelError, "About to terminate TKS app.");
  tks::platform::runningApplications().terminateThisApplication();
}

/// Has the system look through the launcher before anybody waits for its start.
void scanAhead(std::string_view targetPath) {
  tks::platform::ToolRequest request{tks::platform::Tool::gktool, {"scan", tks::pathArgument(targetPath)}};
  request.collectStandardError = true;
  const tks::platform::ToolResult result = tks::runWithinLimit(request);
  const std::string reason =
      result.started ? tks::formatted("exit code %i", result.exitCode) : result.error.description();
  TKSILog::logWithLevel(TKSILogLevelInfo, "Scanned ahead: %@, result: %@", masked(targetPath), masked(reason));
}

/// What the options want done with a launcher that was installed and found healthy.
void finish(std::string_view targetPath, std::string_view version) {
  const TKSOptions& asked = tks::options();
  if (asked.quarantineUntilChecked) TKSUtilBase::removeQuarantineAttribute(targetPath);
  if (asked.refuseDowngrades) tks::install::noteAcceptedVersion(targetPath, tks::install::givenVersion(version));
  if (asked.scanAhead) scanAhead(targetPath);
}

}  // namespace

bool TKSUtilBase::installTKSVersion(std::string_view version, std::string_view backupZipPath,
                                    std::string_view targetPath) {
  std::unique_ptr<FileLock> placeLock;
  tks::install::Patience patience(kPatience);
  const bool installed =
      tks::unlessOutOfMemory([&] { return install(version, backupZipPath, targetPath, patience, placeLock); });
  return tks::unlessOutOfMemory([&] {
    TKSError error;
    if (!placeLock) placeLock = tks::install::lockPlace(targetPath, patience, &error);
    // What another host is replacing is that host's to look at.
    if (!placeLock && error.reason == TKSErrorReason::busy) return installed;
    if (installed) tks::install::tellProgress(TKSInstallStep::assessing);
    // Whatever came before: a launcher that was damaged earlier goes as well.
    if (TKSUtilBase::isBrokenApp(targetPath)) {
      removeBrokenLauncher(targetPath);
      return false;
    }
    if (installed) finish(targetPath, version);
    return installed;
  });
}

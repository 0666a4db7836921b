#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSUtilBase.h>

#include "foundation/FilePaths.h"
#include "foundation/Logging.h"
#include "install/ArchiveCheck.h"
#include "install/PackageVersions.h"
#include "install/ReplaceBundle.h"
#include "platform/platform.h"

// Installing the launcher from a backup archive: unpack, prove, replace, check.

namespace {

using tks::masked;
using tks::platform::files;

/// Nobody else looks into the folder that an archive is unpacked to.
constexpr std::uint32_t kPrivate = 0700;
constexpr std::uint32_t kOrdinaryFolder = 0777;
/// How long one installation waits for another one of the same user.
constexpr std::chrono::minutes kPatience{10};

class Installation {
 public:
  Installation(std::string_view version, std::string_view zipPath, std::string_view targetPath)
      : givenVersion_(version),
        version_(tks::install::givenVersion(version)),
        zipPath_(zipPath),
        targetPath_(targetPath),
        unpackFolder_(tks::joinedPath(tks::platform::knownFolders().temporary(),
                                      tks::platform::bundles().mainBundleIdentifier().value_or(""))),
        unpackedPath_(tks::joinedPath(unpackFolder_, TKSAppName)) {}

  /// Everything from the archive to the launcher in its place.
  bool run() {
    return checkParameters() && waitForOthers() && makePlaceForUnpacking() && unpack() &&
           TKSUtilBase::isSupportedTKSVersion(version_) && checkPackage() && endOldLauncher() && makeParent() &&
           replace();
  }

  /// Removes what is left in the temporary folder.
  void cleanUp() const {
    if (!files().exists(unpackedPath_)) return;
    const bool removed = files().remove(unpackedPath_, nullptr);
    TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up temp unziped app done: %i", removed);
  }

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

  bool waitForOthers() {
    TKSError error;
    const std::string temporary = tks::platform::knownFolders().temporary();
    if (temporary.empty()) {
      TKSILog::logWithLevel(TKSILogLevelError, "There is no temporary folder that can be trusted.");
      return false;
    }
    lock_ = files().lock(tks::joinedPath(temporary, "tksinterface-install.lock"), kPatience, &error);
    if (lock_) return true;
    TKSILog::logWithLevel(TKSILogLevelError, "Cannot wait for other installations: %@", masked(error));
    return false;
  }

  bool makePlaceForUnpacking() const {
    TKSError error;
    if (!files().createDirectory(unpackFolder_, kPrivate, &error)) {
      TKSILog::logWithLevel(TKSILogLevelError, "Cannot make the folder to unpack to: %@", masked(error));
      return false;
    }
    if (!files().exists(unpackedPath_)) return true;
    const bool removed = files().remove(unpackedPath_, &error);
    TKSILog::logWithLevel(TKSILogLevelInfo, "Clean existed temp app result: %i, any error: %@", removed, masked(error));
    return removed;
  }

  bool unpack() const {
    if (const std::optional<std::string> reason = tks::install::reasonAgainstUnpacking(zipPath_, unpackFolder_)) {
      TKSILog::logWithLevel(TKSILogLevelError, "Refuse to unpack: %@, %@", masked(zipPath_), masked(*reason));
      return false;
    }
    TKSUtilBase::unzip(zipPath_, unpackFolder_);
    const bool unpacked = files().exists(unpackedPath_);
    TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip backup to temp TKS app: %@, result: %i", masked(unpackedPath_),
                          unpacked);
    return unpacked;
  }

  bool checkPackage() const {
    TKSError error;
    if (TKSUtilBase::isSafeToInstall(unpackedPath_, version_, &error)) return true;
    TKSILog::logWithLevel(TKSILogLevelError, "Unsafe to install '%@': %@", masked(unpackedPath_), masked(error));
    return false;
  }

  bool endOldLauncher() const {
    if (!files().exists(targetPath_)) return true;
    if (TKSUtilBase::endLaunchModules() && files().isWritable(targetPath_)) return true;
    TKSILog::logWithLevel(TKSILogLevelError, "Can not remove old app bundle: %@, no privilege, or end process failed.",
                          masked(targetPath_));
    return false;
  }

  bool makeParent() const {
    const std::string parent = targetPath_.substr(0, targetPath_.size() - tks::lastPathComponent(targetPath_).size());
    if (parent.empty() || files().exists(parent)) return true;
    TKSError error;
    const bool made = files().createDirectory(parent, kOrdinaryFolder, &error);
    TKSILog::logWithLevel(TKSILogLevelInfo, "Add-ons folder not exists, create folder: %@, result: %i, any error: (%@)",
                          masked(parent), made, masked(error));
    return made;
  }

  bool replace() const {
    TKSError error;
    tks::install::BundleReplacement replacement(targetPath_);
    // What is put in place is what was proved: it is checked once more where nobody unpacks or moves it any longer.
    const bool staged = replacement.stage(unpackedPath_, &error) &&
                        TKSUtilBase::isSafeToInstall(replacement.stagedPath(), version_, &error);
    if (staged && !replacement.putInPlace(&error)) {
      TKSILog::logWithLevel(TKSILogLevelError, "Clean up TKS failed: %@", masked(error));
      return false;
    }
    TKSILog::logWithLevel(TKSILogLevelInfo, "Install TKS done, result: %i, any error: (%@)", staged, masked(error));
    if (!staged) return false;
    TKSILog::logWithLevel(TKSILogLevelInfo, "File replacement done. Begin register work for appext");
    TKSUtilBase::checkLaunchService();
    TKSUtilBase::removeQuarantineAttribute(targetPath_);
    return true;
  }

  std::string givenVersion_;
  std::string version_;
  std::string zipPath_;
  std::string targetPath_;
  std::string unpackFolder_;
  std::string unpackedPath_;
  std::unique_ptr<tks::platform::FileLock> lock_;
};

/// Removes a launcher that turned out broken; a launcher that was updating itself ends.
void removeBrokenLauncher(std::string_view targetPath) {
  TKSILog::logWithLevel(TKSILogLevelError, "TKS broken after installation, about to clean up");
  TKSUtilBase::cleanUpFolderPath(targetPath, true);
  if (tks::platform::bundles().mainBundleIdentifier() != TKSAppBundleID) return;
  TKSILog::logWithLevel(TKSILogLevelError, "About to terminate TKS app.");
  tks::platform::runningApplications().terminateThisApplication();
}

}  // namespace

bool TKSUtilBase::installTKSVersion(std::string_view version, std::string_view backupZipPath,
                                    std::string_view targetPath) {
  Installation installation(version, backupZipPath, targetPath);
  const bool installed = installation.run();
  installation.cleanUp();
  // Whatever came before: a launcher that was damaged earlier goes as well.
  if (!TKSUtilBase::isBrokenApp(targetPath)) return installed;
  removeBrokenLauncher(targetPath);
  return false;
}

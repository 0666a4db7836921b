#include "install/UnpackFolder.h"

#include <tksinterface/TKSConstants.h>
#include <tksinterface/TKSILog.h>

#include "foundation/logging/Logging.h"
#include "foundation/values/ErrorReasons.h"
#include "foundation/values/FilePaths.h"
#include "install/PrivateUnpacking.h"
#include "install/Progress.h"
#include "install/RemoveWhole.h"
#include "platform/platform.h"

namespace tks::install {
namespace {

using platform::files;

/// Whether a name is taken, also by a link that leads nowhere.
bool isTaken(const std::string& path) { return files().exists(path) || files().attributes(path, nullptr); }

std::string pathOfFolder() {
  const std::string temporary = platform::knownFolders().temporary();
  const std::string host = platform::bundles().mainBundleIdentifier().value_or("");
  return temporary.empty() || host.empty() ? temporary : joinedPath(temporary, host);
}

}  // namespace

UnpackFolder::UnpackFolder()
    : path_(pathOfFolder()),
      launcher_(joinedPath(path_, TKSAppName)),
      isOwn_(path_ != platform::knownFolders().temporary()) {}

bool UnpackFolder::enter(Patience& patience, TKSError* error) {
  if (path_.empty()) {
    if (error != nullptr) {
      *error =
          makeError(TKSErrorReason::noSafeFolder, TKSUtilErrorDomain, 0, "there is no temporary folder to be trusted");
    }
    return false;
  }
  // Whether the temporary folder can be trusted was seen before.
  if (isOwn_ && !files().usePrivateDirectory(path_, error)) return false;
  lock_ = patience.lock(path_, error);
  if (lock_) PrivateUnpacking::removeLeftOvers(path_);
  return lock_ != nullptr;
}

bool UnpackFolder::makeRoom() const {
  if (!isTaken(launcher_)) return true;
  TKSError error;
  const bool removed = removeWhole(launcher_, &error);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Clean existed temp app result: %i, any error: %@", removed, masked(error));
  return removed;
}

bool UnpackFolder::unpack(const std::string& zipPath, TKSError* error) {
  PrivateUnpacking unpacking(path_);
  unpacking.onStep = tellProgress;
  const bool moved =
      unpacking.run(zipPath, platform::ArchiveFormat::zip, {}, error) && unpacking.take(TKSAppName, launcher_, error);
  const bool unpacked = moved && files().exists(launcher_);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Unzip backup to temp TKS app: %@, result: %i", masked(launcher_), unpacked);
  return unpacked;
}

void UnpackFolder::removeLauncher() {
  // While another installation holds the lock, the contents are its own.
  if (path_.empty() || (!lock_ && !files().exists(path_))) return;
  Patience none{std::chrono::milliseconds(0)};
  if (!lock_ && !enter(none, nullptr)) return;
  if (!isTaken(launcher_)) return;
  const bool removed = removeWhole(launcher_, nullptr);
  TKSILog::logWithLevel(TKSILogLevelInfo, "Clean up temp unziped app done: %i", removed);
}

}  // namespace tks::install
